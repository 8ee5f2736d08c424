// The switchboard's window against the simulator, on a real X server.
#include "callsmodel.h"
#include "callspanel.h"
#include "extensionmodel.h"
#include "extensionpanel.h"
#include "mainwindow.h"
#include "telvix.h"
#include "toolprocess.h"

#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

class TestSwitchboard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void incomingCallIsAnsweredFromTheWindow();
    void lostConnectionIsToldInWords();

private:
    QString state() const
    {
        return m_window->findChild<QLabel*>(QStringLiteral("connectionState"))->toolTip();
    }
    void screenshot(const QString& name);

    QTemporaryDir m_dataDir;
    ToolProcess* m_sim = nullptr;
    Telvix* m_client = nullptr;
    MainWindow* m_window = nullptr;
};

void TestSwitchboard::initTestCase()
{
    QVERIFY(m_dataDir.isValid());
    QVERIFY(QDir().mkpath(QStringLiteral(SWITCHBOARD_SCREENSHOTS)));
    // Nobody answers by themselves: the call waits for the window.
    m_sim = new ToolProcess(QStringLiteral(TELVIX_PBXSIM),
                            {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--desk-phones"),
                             QStringLiteral("--answer-delay"), QStringLiteral("-1"),
                             QStringLiteral("--call-duration"), QStringLiteral("2500"),
                             QStringLiteral("--probe-interval"), QStringLiteral("0"),
                             QStringLiteral("--scenario"), QStringLiteral(SWITCHBOARD_SCENARIO)});
    QVERIFY(m_sim->start());
    const QRegularExpressionMatch port
        = QRegularExpression(QStringLiteral("listening on 127\\.0\\.0\\.1:(\\d+)"))
              .match(m_sim->waitForLine(QStringLiteral("listening on")));
    QVERIFY2(port.hasMatch(), qPrintable(m_sim->errorOutput()));

    m_client = new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("switchboard-test"),
                          QStringLiteral("1.0"), QStringLiteral("switchboard-test-device"), m_dataDir.path());
    m_client->init();
    m_window = new MainWindow(m_client, m_dataDir.path());
    m_window->resize(1100, 650);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
    LoginSettings settings;
    settings.port = quint16(port.captured(1).toUInt());
    m_window->connectTo(settings);
}

void TestSwitchboard::cleanupTestCase()
{
    delete m_window;
    if (m_client)
        m_client->shutdown();
    delete m_client;
    delete m_sim;
}

void TestSwitchboard::screenshot(const QString& name)
{
    QVERIFY(m_window->grab().save(QStringLiteral(SWITCHBOARD_SCREENSHOTS "/%1.png").arg(name)));
}

void TestSwitchboard::incomingCallIsAnsweredFromTheWindow()
{
    QTRY_VERIFY_WITH_TIMEOUT(state().startsWith(QLatin1String("Connected")), 10000);
    QVERIFY2(state().contains(QLatin1String("Anna Rossi (1000)")), qPrintable(state()));
    // The nine colleagues, with live line status.
    ExtensionModel* colleagues = m_window->extensions()->model();
    QTRY_COMPARE(colleagues->rowCount(), 9);
    QTRY_COMPARE(colleagues->index(0, ExtensionModel::LineColumn).data().toString(), QStringLiteral("free"));
    screenshot(QStringLiteral("1-logged-in"));

    // The scenario's caller from outside rings the user's desk phone.
    CallsModel* calls = m_window->calls()->model();
    QTRY_COMPARE_WITH_TIMEOUT(calls->rowCount(), 1, 15000);
    QCOMPARE(calls->index(0, CallsModel::CallerColumn).data().toString(),
             QStringLiteral("Laura Bianchi (0612345678)"));
    QCOMPARE(calls->index(0, CallsModel::StateColumn).data().toString(), QStringLiteral("ringing"));
    auto* answer = m_window->findChild<QPushButton*>(QStringLiteral("answerButton"));
    auto* hold = m_window->findChild<QPushButton*>(QStringLiteral("holdButton"));
    QTRY_VERIFY(answer->isEnabled()); // once the desk phone reported its line
    QVERIFY(!hold->isEnabled());
    screenshot(QStringLiteral("2-ringing"));

    QTest::mouseClick(answer, Qt::LeftButton);
    QVERIFY(!m_sim->waitForLine(QStringLiteral("desk phone SIP/1000-")).contains(QLatin1String("refuses")));
    QTRY_COMPARE(calls->index(0, CallsModel::StateColumn).data().toString(), QStringLiteral("talking"));
    QVERIFY(!answer->isEnabled());
    QVERIFY(hold->isEnabled());
    screenshot(QStringLiteral("3-answered"));

    // The caller hangs up; the call leaves the list and enters the history.
    QTRY_COMPARE_WITH_TIMEOUT(calls->rowCount(), 0, 10000);
    auto* history = m_window->findChild<QTableWidget*>(QStringLiteral("historyView"));
    QTRY_VERIFY(history->rowCount() > 0);
    QTRY_VERIFY(history->item(0, 1)->text().contains(QLatin1String("0612345678")));
    screenshot(QStringLiteral("4-ended"));
}

void TestSwitchboard::lostConnectionIsToldInWords()
{
    delete m_sim;
    m_sim = nullptr;
    QTRY_COMPARE_WITH_TIMEOUT(state(), QStringLiteral("Disconnected: the server closed the connection"),
                              10000);
    screenshot(QStringLiteral("5-disconnected"));
}

QTEST_MAIN(TestSwitchboard)
#include "tst_switchboard.moc"
