#include "directorymessages.h"
#include "queuemessages.h"
#include "phonebookmessages.h"
#include "servicemessages.h"
#include "telvix.h"
#include "jsonconvert.h"
#include <QJsonDocument>
#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>
#include <cstdio>
static void out(const char* n, const QString& s) { printf("%s %s\n", n, qPrintable(s)); }
class D : public QObject { Q_OBJECT
private Q_SLOTS:
void dump() {
    BuddyIdentitiesRespMsg peers;
    const auto add = [&peers](const char* account, const char* exten) {
        BuddyIdentityEntry entry; entry.name = QLatin1String(account); entry.type = QStringLiteral("SIP");
        entry.exten = QLatin1String(exten); peers.buddyIdentities.append(entry); };
    add("200-desk", "200"); add("200-soft", "200"); add("201-desk", "201"); add("201-soft", "201");
    out("PEERS", peers.generateXmlMessageBody());
    BuddyIdentitiesRespMsg p2; BuddyIdentityEntry peer; peer.name="201-desk"; peer.type="SIP"; peer.exten="201"; p2.buddyIdentities.append(peer);
    out("PEER201", p2.generateXmlMessageBody());
    QueueMemberAddedEventMsg a; a.member.account="201-soft"; a.member.queueId="q1"; a.member.membership=TELVIX::QueueOperatorMemberDynamic; a.member.penalty=3;
    out("MEMBERADD", a.generateXmlMessageBody());
    QueueMemberRemovedEventMsg r; r.member.account="999-unknown"; r.member.queueId="q1"; out("MEMBERREMOVE", r.generateXmlMessageBody());
    QueueMemberPausedEventMsg p; p.member.account="200-desk"; p.member.queueId="q2"; p.member.paused=true; out("MEMBERPAUSE", p.generateXmlMessageBody());
    QueueOperatorPeriodicStats stats; stats.queueId="q1"; stats.period=TELVIX::PeriodToday; stats.servedCalls=7; stats.operatorAccount="201-desk";
    QueueOperatorPeriodicStatsListRespMsg list; list.stats.append(stats); stats.operatorAccount="300-elsewhere"; list.stats.append(stats);
    out("OPERLIST", list.generateXmlMessageBody());
    QueueOperatorPeriodicStatsRespMsg single; single.stats=stats; single.stats.operatorAccount="200-soft"; out("OPERONE", single.generateXmlMessageBody());
    QueueStats queue; queue.queueId="q1"; queue.name="Sales"; queue.currentCalls=2; QueueOperatorStats oper; oper.member="201-desk"; queue.operators.append(oper);
    QueueStatsListRespMsg liveMsg; liveMsg.stats.append(queue); out("LIVE", liveMsg.generateXmlMessageBody());
    QueuePeriodicStats periodic; periodic.queueId="q1"; periodic.period=TELVIX::PeriodToday; periodic.missedCalls=4;
    QueuePeriodicStatsListRespMsg listMsg; listMsg.stats.period=TELVIX::PeriodToday; listMsg.stats.stats.append(periodic); out("PERIODICLIST", listMsg.generateXmlMessageBody());
    QueuePeriodicStatsRespMsg oneMsg; oneMsg.stats=periodic; out("PERIODICONE", oneMsg.generateXmlMessageBody());
    QueueEventMsg event; event.api="6.1"; event.event.queueId="q1"; event.event.eventType=QueueEvent::Enter; event.event.uid="call-1"; event.event.currentCalls=3;
    out("QEVENT", event.generateXmlMessageBody());
    CCReportRespMsg report; report.data=QByteArrayLiteral("<Report><Calls>12</Calls></Report>"); out("CCREPORT", report.generateXmlMessageBody());
    // contacts
    const auto buddy=[](const QString& exten,const QString& first,const QString& chat=QString()){ BuddyEntry e; e.exten=exten; e.firstName=first; e.lastName="Colleague"; e.chatId=chat; e.contactUuid="uuid-"+exten; return e;};
    const auto ext=[](const QList<BuddyEntry>& b){ BuddiesRespMsg m; m.buddies=b; return m.generateXmlMessageBody();};
    const auto person=[](const QString& uuid,const QString& first,const QString& label,const QString& number){ PhoneBookEntry e; e.contactUuid=uuid; e.firstName=first; e.lastName="Person"; ContactEntry c; c.kind=PHONEBOOK::CTYPE_KIND_PHONE; c.label=label; c.value=number; e.addContact(c); return e;};
    const auto book=[](const QList<PhoneBookEntry>& entries){ PhoneBook b; b.type=PHONEBOOK::PB_VANTOR; b.folder=PHONEBOOK::PB_FOLDER_PUBLIC; b.entries=entries; PBookRespMsg m; m.phoneBooks={b}; return m.generateXmlMessageBody();};
    out("EXT_200", ext({buddy("201","Bob"),buddy("200","Me"),buddy("202","Carol")}));
    out("EXT_OPS1", ext({buddy("201","Bob"),buddy("Ops1","Me"),buddy("202","Carol")}));
    out("BOOK_200", book({person("p1","Dave",PHONEBOOK::CTYPE_LABEL_MOBILE,"3331234567"),person("p2","Myself",PHONEBOOK::CTYPE_LABEL_EXTEN,"200"),person("p3","Erin",PHONEBOOK::CTYPE_LABEL_EXTEN,"201")}));
    out("BOOK_OPS1", book({person("p1","Dave",PHONEBOOK::CTYPE_LABEL_MOBILE,"3331234567"),person("p2","Myself",PHONEBOOK::CTYPE_LABEL_EXTEN,"OPS1"),person("p3","Erin",PHONEBOOK::CTYPE_LABEL_EXTEN,"201")}));
    out("EXT_BOB", ext({buddy("201","Bob")}));
    out("BOOK_DAVE", book({person("p1","Dave","home","0600")}));
    out("EXT_ZOE", ext({buddy("301","Zoe")}));
    ExtenStatusRespMsg status; BuddyStatus known; known.exten="203"; status.statusMap.insert(known.exten, known); out("STATUS203", status.generateXmlMessageBody());
    out("EXT_CHAT", ext({buddy("201","Bob","bob@default"),buddy("202","Carol"),buddy("203","Dan","dan@default")}));
    ServiceListResMsg codes; codes.codes.insert(TELVIX::ServiceEcho,"*43"); codes.codes.insert(TELVIX::ServiceOutboundPrefix,"0"); out("CODES", codes.generateXmlMessageBody());
    PhoneBook outlook; outlook.type=PHONEBOOK::PB_OUTLOOK; outlook.entries={person("o1","Olga","home","0603")};
    printf("OUTLOOK %s\n", qPrintable(QString::fromUtf8(QJsonDocument(JsonConvert::toJson(QVariant::fromValue(QList<PhoneBook>{outlook})).toArray()).toJson(QJsonDocument::Compact))));
    PhoneBookEntry added=person(QString(),"Frank",PHONEBOOK::CTYPE_LABEL_MOBILE,"333"); added.company="A & B";
    printf("FRANK %s\n", qPrintable(QString::fromUtf8(QJsonDocument(JsonConvert::toJson(QVariant::fromValue(added)).toObject()).toJson(QJsonDocument::Compact))));
    printf("GINA %s\n", qPrintable(QString::fromUtf8(QJsonDocument(JsonConvert::toJson(QVariant::fromValue(person("c-42","Gina","home","0601"))).toObject()).toJson(QJsonDocument::Compact))));
    printf("HANK %s\n", qPrintable(QString::fromUtf8(QJsonDocument(JsonConvert::toJson(QVariant::fromValue(person(QString(),"Hank","home","0602"))).toObject()).toJson(QJsonDocument::Compact))));
    printf("SENTINEL %s\n", qPrintable(QString::fromUtf8(QJsonDocument(JsonConvert::toJson(QVariant::fromValue(person(QString(),"Sentinel","home","1"))).toObject()).toJson(QJsonDocument::Compact))));
}
};
QTEST_GUILESS_MAIN(D)
#include "tst_zzdump.moc"
