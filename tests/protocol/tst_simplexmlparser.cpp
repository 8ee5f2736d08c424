// What the golden cases of the framer (tests/fixtures/protocol/scanner.json)
// cannot show: every cut of a stream, a slot feeding the parser while it
// signals, and a consumer on another thread.
#include "simplexmlparser.h"

#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <memory>

namespace {

QStringList drain(SimpleXmlParser& parser)
{
    QStringList messages;
    while (parser.hasPendingMessages())
        messages << parser.getNextMessage();
    return messages;
}

} // namespace

class TestSimpleXmlParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void splitAtEveryPosition();
    void slotFeedingMoreTextWhileSignalled();
    void consumerOnAnotherThread();
};

void TestSimpleXmlParser::splitAtEveryPosition()
{
    const QString first = QStringLiteral("<SRNT><Name>caf\u00e9 &amp; bar</Name></SRNT>");
    const QString second = QStringLiteral("<SRNT><KeepAlive/></SRNT>");
    const QString stream = first + QStringLiteral("\r\n") + second;

    // Three chunks, cut at every pair of positions.
    for (int i = 0; i <= stream.size(); ++i) {
        for (int j = i; j <= stream.size(); ++j) {
            SimpleXmlParser parser;
            parser.rootTag = QStringLiteral("SRNT");
            QSignalSpy completed(&parser, &SimpleXmlParser::messageCompleted);
            QSignalSpy errors(&parser, &SimpleXmlParser::parseErrorFound);
            int done = 0;
            for (const QString& chunk : {stream.left(i), stream.mid(i, j - i), stream.mid(j)}) {
                done += chunk.size();
                parser.addData(chunk);
                const int expected = (done >= first.size() ? 1 : 0) + (done == stream.size() ? 1 : 0);
                if (completed.count() != expected)
                    QFAIL(qPrintable(QStringLiteral("cut at %1/%2: %3 messages after %4 characters")
                                         .arg(i)
                                         .arg(j)
                                         .arg(completed.count())
                                         .arg(done)));
            }
            QCOMPARE(drain(parser), QStringList({first, second}));
            QCOMPARE(parser.getCurrentBuffer(), QString());
            QCOMPARE(errors.count(), 0);
        }
    }
}

void TestSimpleXmlParser::slotFeedingMoreTextWhileSignalled()
{
    SimpleXmlParser parser;
    parser.rootTag = QStringLiteral("SRNT");
    int calls = 0;
    connect(&parser, &SimpleXmlParser::messageCompleted, this, [&] {
        if (++calls == 1)
            parser.addData(QStringLiteral("NT><SRNT>3</SRNT>"));
    });
    parser.addData(QStringLiteral("<SRNT>1</SRNT><SRNT>2</SR"));
    QCOMPARE(calls, 3);
    QCOMPARE(drain(parser), QStringLiteral("<SRNT>1</SRNT> <SRNT>2</SRNT> <SRNT>3</SRNT>").split(' '));
    QCOMPARE(parser.getCurrentBuffer(), QString());
}

void TestSimpleXmlParser::consumerOnAnotherThread()
{
    SimpleXmlParser parser;
    parser.rootTag = QStringLiteral("SRNT");
    const int count = 3000;
    parser.setNotifyMode(4);
    QStringList taken;
    std::atomic<bool> stop {false};
    std::unique_ptr<QThread> consumer(QThread::create([&] {
        while (taken.size() < count && !stop) {
            if (parser.hasPendingMessages()) {
                const QString m = parser.getNextMessage();
                if (!m.isEmpty())
                    taken << m;
            } else {
                QThread::yieldCurrentThread();
            }
        }
    }));
    consumer->start();

    QString stream;
    for (int i = 0; i < count; ++i)
        stream += QStringLiteral("<SRNT><N>%1</N></SRNT>").arg(i);
    for (int pos = 0; pos < stream.size(); pos += 37)
        parser.addData(stream.mid(pos, 37));

    if (!consumer->wait(20000)) {
        stop = true;
        consumer->wait();
        QFAIL("the consumer did not receive every message");
    }
    QCOMPARE(taken.size(), count);
    for (int i = 0; i < count; ++i)
        QCOMPARE(taken.at(i), QStringLiteral("<SRNT><N>%1</N></SRNT>").arg(i));
}

QTEST_GUILESS_MAIN(TestSimpleXmlParser)
#include "tst_simplexmlparser.moc"
