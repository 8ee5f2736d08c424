// Chat sessions played from files against the tests' private prosody: a
// step a line, "who verb arguments"; the verbs are listed in
// tests/fixtures/chat/sessions/README.md.
#pragma once

#include "logbuscapture.h"
#include "xmppaccount.h"
#include "xmppfthandler.h"
#include "xmpphistory.h"

#include <QtTest>

#include <gloox/delayeddelivery.h>
#include <gloox/forward.h>
#include <gloox/message.h>
#include <gloox/parser.h>

#include <unistd.h>

using Account = std::unique_ptr<XmppAccount>;

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The one stanza of a text.
struct Stanza : gloox::TagHandler
{
    explicit Stanza(const QString& text)
    {
        std::string bytes = text.toStdString();
        gloox::Parser(this).feed(bytes);
    }
    void handleTag(gloox::Tag* parsed) override { tag.reset(parsed->clone()); }
    std::unique_ptr<gloox::Tag> tag;
};

// Plays one session file: accounts by name, steps that act on them, and
// steps that wait for what an account has seen, rendered as short texts.
struct Script
{
    ProsodyServer* server = nullptr;
    QString logDir;
    std::unique_ptr<ProsodyServer> plain;
    LogbusCapture log;
    std::map<QString, Account> accounts;
    QDateTime mark;
    // Files to offer and folders to take them, below one folder; the
    // session id of the offer at hand, and what it carries.
    QTemporaryDir files;
    QString sid;
    QByteArray sent;
    QStringList readOnly;
    std::unique_ptr<QProcess> sender;

    ~Script()
    {
        // A failed step must not leave the shared server frozen, nor a folder
        // that cannot be cleaned up.
        server->resume();
        accounts.clear();
        for (const QString& dir : readOnly)
            QFile::setPermissions(path(dir),
                                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }

    // Root writes anywhere a mode allows; the process file system takes no
    // files from anyone.
    QString path(const QString& name) const
    {
        return readOnly.contains(name) && geteuid() == 0 ? QStringLiteral("/proc") : files.filePath(name);
    }

    QStringList globalField(const QString& name) const
    {
        if (name == "sid")
            return {sid.isEmpty() ? "none" : "made"};
        return QDir(path(name)).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    static QString stamp(const QDateTime& time)
    {
        if (!time.isValid() || time.timeSpec() != Qt::UTC)
            return time.isValid() ? "not UTC" : "invalid";
        return qAbs(time.secsTo(QDateTime::currentDateTimeUtc())) < 600 ? "now" : "long ago";
    }

    QStringList field(const XmppAccount& a, const QString& name) const
    {
        static const QMap<QString, QStringList XmppAccount::*> lists {
            {"reasons", &XmppAccount::reasons},     {"own", &XmppAccount::ownPresences},
            {"presences", &XmppAccount::presences}, {"contacts", &XmppAccount::onlineContacts},
            {"composing", &XmppAccount::composing}, {"delivered", &XmppAccount::delivered},
            {"displayed", &XmppAccount::displayed}, {"started", &XmppAccount::started},
            {"sent", &XmppAccount::sent},           {"errors", &XmppAccount::errors}};
        static const QMap<QString, int> types {{"feedback", ChatMessage::Feedback},
                                               {"normal", ChatMessage::Normal},
                                               {"copy", ChatMessage::Copy}};
        // "presences:bob@default": only the entries that start so.
        const QString filter = name.section(':', 1), kind = name.section(':', 0, 0).section('-', 0, 0);
        if (!filter.isEmpty())
            return field(a, name.section(':', 0, 0))
                .filter(QRegularExpression('^' + QRegularExpression::escape(filter)));
        // Session ids read "this" where they are the one at hand.
        if (lists.contains(name))
            return sid.isEmpty() ? a.*lists.value(name)
                                 : QStringList(a.*lists.value(name)).replaceInStrings(sid, "this");
        QStringList out;
        for (const XmppAccount::Offer& o :
             name == "offer" ? a.offers.mid(a.offers.size() - 1) : QList<XmppAccount::Offer>())
            out << QStringList {o.chatId, o.fileName, o.mime, o.sid == sid ? "this" : "other"}.join(' ');
        for (const auto& file : name == "completed" ? a.completed : decltype(a.completed)())
            out << QDir(files.path()).relativeFilePath(file.second)
                    + (readFile(file.second) == sent ? " as sent" : " different");
        for (const auto& vcard : name == "vcards" ? a.vcards : decltype(a.vcards)())
            out << (vcard.second == sent ? "as sent" : "different");
        if (name == "progress")
            out << (a.progress.isEmpty() ? "none" : a.progress.last() == 1.0f ? "whole" : "part");
        if (name == "connected" || name == "presence")
            out << (name == "connected" ? QString::number(a.connected)
                                        : a.presences.value(a.presences.size() - 1));
        for (bool on : name == "archive" ? a.historyEnabled : QList<bool>())
            out << (on ? "on" : "off");
        for (const QList<ChatMessage>& history : name == "histories" ? a.histories : decltype(a.histories)())
            out << QString::number(history.size());
        if (name == "roster" && !a.rosters.isEmpty())
            out = a.rosters.last().keys();
        const PresenceMap map
            = name == "map" ? a.presenceMaps.value(a.presenceMaps.size() - 1) : PresenceMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            out << XmppAccount::text(it.key(), it.value().first, it.value().second);
        // The last answer, marked where a message is not from the archive or
        // not after the mark; sorted, as the archive orders by its own ids.
        for (const ChatMessage& m :
             name == "history" ? a.histories.value(a.histories.size() - 1) : QList<ChatMessage>()) {
            out << XmppAccount::text(m) + (m.type == ChatMessage::History ? "" : " (not history)")
                    + (stamp(m.timestamp) == "now" && m.timestamp > mark ? "" : " (before)");
            out.sort();
        }
        const QString part = name.section('-', 1);
        for (const ChatMessage& m : a.messages)
            if (kind == "messages" || m.type == types.value(kind, -1))
                out << (part == "ids"           ? m.id
                            : part == "threads" ? m.threadId
                            : part == "stamps"  ? stamp(m.timestamp)
                                                : XmppAccount::text(m));
        return out;
    }

    void step(const QStringList& words)
    {
        using Action = void (XmppClient::*)(const QString&);
        static const QMap<QString, Action> actions {{"saw", &XmppClient::sendMessageDisplayed},
                                                    {"composing", &XmppClient::sendStartComposing},
                                                    {"paused", &XmppClient::sendStopComposing},
                                                    {"inactive", &XmppClient::sendCloseConversation},
                                                    {"active", &XmppClient::sendOpenConversation}};
        static const QMap<QString, void (XmppClient::*)()> requests {
            {"disconnect", &XmppClient::disconnectFromServer},
            {"ping", &XmppClient::sendKeepAliveMessage},
            {"contacts", &XmppClient::requestContacts},
            {"presences", &XmppClient::requestContactsPresence}};
        const QString who = words.value(0), verb = words.value(1), arg = words.value(2);
        const QString tail = words.mid(3).join(' ');
        if (QStringList {"is", "has", "lacks", "same"}.contains(verb))
            return check(words);
        if (who == "-")
            return global(verb, arg, tail);
        Account& account = accounts[who];
        if (verb == "online" || verb == "new" || verb == "drop") {
            account = verb == "online"
                ? XmppAccount::online(plain ? *plain : *server, logDir, arg, words.value(3, "desk"))
                : verb == "new" ? std::make_unique<XmppAccount>(logDir)
                                : nullptr;
            QVERIFY(account || verb == "drop");
            return;
        }
        QVERIFY2(account, "no such account");
        XmppClient* client = account->client;
        if (actions.contains(verb))
            (client->*actions.value(verb))(arg);
        else if (requests.contains(verb))
            (client->*requests.value(verb))();
        else if (verb == "connect")
            account->connectTo(plain ? *plain : *server, arg, words.value(3), words.value(4, "secret"));
        else if (verb == "send")
            client->sendMessage(arg, tail);
        else if (verb == "offer" || verb == "vcard") { // to, file, then mime type or vCard name
            sent = readFile(path(words.value(3)));
            sid = verb == "offer" ? client->sendFile(arg, path(words.value(3)), words.value(4))
                                  : client->sendVCard(arg, sent, words.value(4));
        } else if (verb == "accept" || verb == "decline") { // folder, then session id if not the last offer's
            sid = account->offers.isEmpty() ? QString() : account->offers.last().sid;
            const QString answered = words.value(verb == "accept" ? 3 : 2, sid);
            QDir(files.path()).mkpath(arg);
            verb == "accept" ? client->acceptFT(answered, path(arg)) : client->declineFT(answered);
        } else if (verb == "presence")
            client->updateClientPresence(
                TELVIX::ChatPresence(
                    QMetaEnum::fromType<TELVIX::ChatPresence>().keyToValue(qPrintable("ChatPresence" + arg))),
                tail);
        else if (verb == "history")
            client->getHistory(arg == "mark"      ? mark
                                   : arg == "now" ? QDateTime::currentDateTimeUtc()
                                                  : QDateTime());
        else if (verb == "interval") { // seconds, then whether taken, then what holds
            const QString taken = client->setKeepAliveSendIntervalSec(arg.toInt()) ? "taken " : "refused ";
            QCOMPARE(taken + QString::number(client->getKeepAliveSendIntervalSec()), tail);
        } else {
            QFAIL(qPrintable("unknown step " + verb));
        }
    }

    // Waits until what an account ("-": the files) has seen holds; "same":
    // the last entries of two fields are equal and not empty.
    void check(const QStringList& words)
    {
        const QString who = words.value(0), verb = words.value(1), name = words.value(2);
        const QString wanted = words.mid(3).join(' ');
        const auto value = [&](const QString& owner, const QString& f) {
            return owner == "-"   ? globalField(f)
                : accounts[owner] ? field(*accounts[owner], f)
                                  : QStringList();
        };
        const auto last = [&](const QString& owner, const QString& f) {
            return value(owner, f).value(value(owner, f).size() - 1);
        };
        const auto holds = [&]() {
            const QStringList f = value(who, name);
            return verb == "is" ? f.join(" | ") == wanted
                : verb == "has" ? f.contains(wanted)
                : verb == "lacks"
                ? f.filter(wanted).isEmpty()
                : !last(who, name).isEmpty() && last(who, name) == last(words.value(3), words.value(4));
        };
        QVERIFY2(QTest::qWaitFor(holds, 30000), qPrintable(name + " is: " + value(who, name).join(" | ")));
    }

    void global(const QString& verb, const QString& arg, const QString& tail)
    {
        const QString given = (arg + ' ' + tail).section(" => ", 0, 0),
                      wanted = (arg + ' ' + tail).section(" => ", 1);
        if (verb == "reads") { // an archive stanza => what is read from it
            const Stanza stanza(given);
            QVERIFY(stanza.tag);
            const HistoryResult result(stanza.tag.get());
            const HistoryEnd end(stanza.tag.get());
            // What is written reads back the same.
            const std::unique_ptr<gloox::Tag> written(end.tag());
            const HistoryEnd again(written.get());
            QCOMPARE(QList<long>({again.first, again.last, again.count}),
                     QList<long>({end.first, end.last, end.count}));
            const auto* message = result.forward
                ? static_cast<const gloox::Message*>(result.forward->embeddedStanza())
                : nullptr;
            const gloox::DelayedDelivery* delay = result.forward ? result.forward->when() : nullptr;
            QCOMPARE(
                stanza.tag->name() == "fin"
                    ? QStringLiteral("first %1 last %2 count %3").arg(end.first).arg(end.last).arg(end.count)
                    : QString::fromStdString("id " + result.id + " stamp " + (delay ? delay->stamp() : "")
                                             + " body " + (message ? message->body() : ""))
                          .trimmed(),
                wanted);
        } else if (verb == "asks") { // since => the query sent; a second one while it is pending is not
            XmppHistory history(logDir);
            std::vector<std::unique_ptr<gloox::Tag>> queries;
            QObject::connect(&history, &XmppHistory::sigSendTag,
                             [&](gloox::Tag* tag) { queries.emplace_back(tag); });
            history.sendRequest(QDateTime::fromString(given.trimmed(), Qt::ISODateWithMs));
            history.sendRequest(QDateTime::fromString(given.trimmed(), Qt::ISODateWithMs));
            QCOMPARE(int(queries.size()), 1);
            QVERIFY(queries.front()->findAttribute("id").size() > 30);
            queries.front()->addAttribute("id", "REQUEST");
            QCOMPARE(queries.front()->xml(), Stanza(wanted).tag->xml());
        } else if (verb == "presencetype") { // a number => as gloox's type in ours, as ours in gloox's
            QCOMPARE(QStringLiteral("%1 %2")
                         .arg(XMPPENGINE::presenceTypeFromGlooxToTelvix(
                             gloox::Presence::PresenceType(arg.toInt())))
                         .arg(XMPPENGINE::presenceTypeFromTelvixToGloox(TELVIX::ChatPresence(arg.toInt()))),
                     wanted);
        } else if (verb == "unique") { // a path => the free name for it
            QCOMPARE(XmppFTHandler::getUniqueFilename(path(given.trimmed())), path(wanted));
        } else if (verb == "file") { // a name, then random bytes of that size or a text
            QDir(files.path()).mkpath(QFileInfo(path(arg)).path());
            bool random = false;
            QByteArray content(tail.toInt(&random), 0);
            QRandomGenerator(content.size())
                .fillRange(reinterpret_cast<quint32*>(content.data()), content.size() / 4);
            QFile file(path(arg));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(random ? content : tail.toUtf8().replace("\\r\\n", "\r\n"));
        } else if (verb == "readonly") {
            readOnly << arg;
            QVERIFY(QDir(files.path()).mkpath(arg));
            QVERIFY(geteuid() == 0
                    || QFile::setPermissions(path(arg), QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        } else if (verb == "sender") { // another program offers: its user, to whom, the file
            sender = std::make_unique<QProcess>();
            sender->start(QCoreApplication::applicationFilePath(),
                          {"--send", QString::number(server->port()), server->jid(arg),
                           tail.section(' ', 0, 0), path(tail.section(' ', 1))});
        } else if (verb == "kill") { // the other program, in the middle of sending
            sender->kill();
            QVERIFY(sender->waitForFinished());
        } else if (verb == "log") { // priority, text
            QVERIFY2(log.waitFor(tail, 10000), qPrintable(tail));
            QVERIFY2(log.contains(arg.toInt(), tail), qPrintable(log.texts().filter(tail).join('\n')));
        } else if (verb == "logcount") {
            QCOMPARE(log.count(tail), arg.toInt());
        } else if (verb == "suspend" || verb == "resume") {
            QVERIFY(verb == "suspend" ? server->suspend() : server->resume());
        } else if (verb == "mark") {
            // The archive stamps whole seconds from a coarse clock: the mark
            // is the start of the next second, well passed before going on.
            const QDateTime now = QDateTime::currentDateTimeUtc();
            const QDateTime next = now.addMSecs(1000 - now.time().msec());
            QVERIFY(QTest::qWaitFor([&]() { return QDateTime::currentDateTimeUtc() >= next.addMSecs(50); },
                                    2000));
            mark = next.addMSecs(-1);
        } else if (verb == "noarchive") { // a server of its own, for user `arg`
            plain = std::make_unique<ProsodyServer>();
            plain->addUser(arg, QStringLiteral("secret"));
            plain->setArchive(false);
            QVERIFY2(plain->start(), qPrintable(plain->errorString()));
        } else {
            QFAIL(qPrintable("unknown step " + verb));
        }
    }
};

// One row for each session file in a folder of the fixtures.
inline void addSessionRows(const QString& folder)
{
    QTest::addColumn<QString>("path");
    const QDir dir(QStringLiteral(TELVIX_TEST_FIXTURES "/chat/") + folder);
    for (const QString& name : dir.entryList({QStringLiteral("*.session")}))
        QTest::newRow(qPrintable(name)) << dir.filePath(name);
}

// Plays a session file, failing at the first step that does not hold.
inline void playSession(const QString& path, ProsodyServer* server, const QString& logDir)
{
    QFile file(path);
    QVERIFY2(file.open(QIODevice::ReadOnly | QIODevice::Text), qPrintable(path));
    Script script;
    script.server = server;
    script.logDir = logDir;
    for (int number = 1; !file.atEnd(); ++number) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        script.step(line.split(QLatin1Char(' ')));
        if (QTest::currentTestFailed())
            QFAIL(qPrintable(QStringLiteral("at line %1: %2").arg(number).arg(line)));
    }
}
