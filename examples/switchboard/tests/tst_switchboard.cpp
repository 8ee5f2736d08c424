// The switchboard's window against the simulator, on a real X server.
#include "callsmodel.h"
#include "callspanel.h"
#include "chatpanel.h"
#include "extensionmodel.h"
#include "extensionpanel.h"
#include "logindialog.h"
#include "mainwindow.h"
#include "prosodyserver.h"
#include "telvix.h"
#include "telvixreconnector.h"
#include "toolprocess.h"

#include <QCheckBox>
#include <QDate>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <QTreeView>
#include <QUrl>

/// Stands in for the desktop's player.
class UrlCatcher : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }
};

class TestSwitchboard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void loginDialogShowsTheTlsChoice();
    void incomingCallIsAnsweredFromTheWindow();
    void answeredCallIsTransferredToAColleague();
    void voicemailIsDownloadedAsWave();
    void chatWithAColleague();
    void linkOfASecondStartIsDialledByTheFirst();
    void lostSessionComesBackByItself();
    void lostConnectionIsToldInWords();
    void storedHistoryIsShownAfterARestart();

private:
    QPushButton* button(const char* name) const
    {
        return m_window->findChild<QPushButton*>(QLatin1String(name));
    }
    QString callState() const
    {
        return m_window->calls()->model()->index(0, CallsModel::StateColumn).data().toString();
    }
    QString state() const
    {
        return m_window->findChild<QLabel*>(QStringLiteral("connectionState"))->toolTip();
    }
    QTableWidget* history() const
    {
        return m_window->findChild<QTableWidget*>(QStringLiteral("historyView"));
    }
    void startSimulator(const QStringList& extraArguments);
    void startWindow();
    void stopWindow();
    void screenshot(const QString& name);

    QTemporaryDir m_dataDir;
    ToolProcess* m_sim = nullptr;
    quint16 m_port = 0;
    Telvix* m_client = nullptr;
    MainWindow* m_window = nullptr;
    /// The chat server, when prosody is installed.
    std::unique_ptr<ProsodyServer> m_chat;
};

void TestSwitchboard::startSimulator(const QStringList& extraArguments)
{
    // Nobody answers or hangs up by themselves: the calls wait for the window.
    m_sim = new ToolProcess(QStringLiteral(TELVIX_PBXSIM),
                            QStringList {QStringLiteral("--port"), QStringLiteral("0"),
                                         QStringLiteral("--desk-phones"), QStringLiteral("--answer-delay"),
                                         QStringLiteral("-1"), QStringLiteral("--call-duration"),
                                         QStringLiteral("60000"), QStringLiteral("--probe-interval"),
                                         QStringLiteral("0")}
                                + extraArguments);
    QVERIFY(m_sim->start());
    const QRegularExpressionMatch port
        = QRegularExpression(QStringLiteral("listening on 127\\.0\\.0\\.1:(\\d+)"))
              .match(m_sim->waitForLine(QStringLiteral("listening on")));
    QVERIFY2(port.hasMatch(), qPrintable(m_sim->errorOutput()));
    m_port = quint16(port.captured(1).toUInt());
}

// The application's own order: the library's thread first, then the window.
void TestSwitchboard::startWindow()
{
    m_client = new Telvix(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("switchboard-test"),
                          QStringLiteral("1.0"), QStringLiteral("switchboard-test-device"), m_dataDir.path());
    m_client->init();
    m_window = new MainWindow(m_client, m_dataDir.path());
    m_window->resize(1100, 650);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
    LoginSettings settings;
    settings.port = m_port;
    m_window->connectTo(settings);
}

void TestSwitchboard::stopWindow()
{
    delete m_window;
    m_window = nullptr;
    if (m_client)
        m_client->shutdown();
    delete m_client;
    m_client = nullptr;
}

void TestSwitchboard::initTestCase()
{
    QVERIFY(m_dataDir.isValid());
    QVERIFY(QDir().mkpath(QStringLiteral(SWITCHBOARD_SCREENSHOTS)));
    QStringList arguments {QStringLiteral("--scenario"), QStringLiteral(SWITCHBOARD_SCENARIO)};
    if (ProsodyServer::isInstalled()) {
        // The simulator's chat ids, with the extensions' passwords.
        m_chat.reset(new ProsodyServer);
        m_chat->addUser(QStringLiteral("anna.rossi"), QStringLiteral("1000"));
        m_chat->addUser(QStringLiteral("bruno.keller"), QStringLiteral("1001"));
        m_chat->setSharedRoster(true);
        QVERIFY2(m_chat->start(), qPrintable(m_chat->errorString()));
        arguments << QStringLiteral("--chat-port") << QString::number(m_chat->port());
    }
    startSimulator(arguments);
    startWindow();
}

void TestSwitchboard::cleanupTestCase()
{
    stopWindow();
    delete m_sim;
}

void TestSwitchboard::screenshot(const QString& name)
{
    QVERIFY(m_window->grab().save(QStringLiteral(SWITCHBOARD_SCREENSHOTS "/%1.png").arg(name)));
}

void TestSwitchboard::loginDialogShowsTheTlsChoice()
{
    LoginDialog dialog(LoginSettings {});
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    auto* verify = dialog.findChild<QCheckBox*>();
    QVERIFY(verify->isVisible());
    QVERIFY(!verify->isChecked()); // the simulator's certificate is self-signed
    QVERIFY(dialog.grab().save(QStringLiteral(SWITCHBOARD_SCREENSHOTS "/0-login.png")));
    verify->click();
    QVERIFY(dialog.settings().verifyTls);
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
    QPushButton* answer = button("answerButton");
    QPushButton* hold = button("holdButton");
    QTRY_VERIFY(answer->isEnabled()); // once the desk phone reported its line
    QVERIFY(!hold->isEnabled());
    screenshot(QStringLiteral("2-ringing"));

    QTest::mouseClick(answer, Qt::LeftButton);
    QVERIFY(m_sim->waitForLine(QStringLiteral("desk phone SIP/1000-")).contains(QLatin1String("obeys")));
    QTRY_COMPARE(callState(), QStringLiteral("talking"));
    QVERIFY(!answer->isEnabled());
    QTRY_VERIFY(hold->isEnabled());
    screenshot(QStringLiteral("3-answered"));

    QTest::mouseClick(hold, Qt::LeftButton);
    QTRY_COMPARE(callState(), QStringLiteral("on hold"));
    QCOMPARE(hold->text(), QStringLiteral("Resume"));
    screenshot(QStringLiteral("4-on-hold"));
    QTest::mouseClick(hold, Qt::LeftButton);
    QTRY_COMPARE(callState(), QStringLiteral("talking"));

    // Hung up from the window; the call leaves the list and enters the history.
    QTest::mouseClick(button("hangupButton"), Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(calls->rowCount(), 0, 10000);
    QTRY_VERIFY(history()->rowCount() > 0);
    QTRY_VERIFY(history()->item(0, 1)->text().contains(QLatin1String("0612345678")));
    screenshot(QStringLiteral("5-ended"));
}

void TestSwitchboard::answeredCallIsTransferredToAColleague()
{
    // The scenario's second caller rings once the first call is hung up.
    CallsModel* calls = m_window->calls()->model();
    QTRY_COMPARE_WITH_TIMEOUT(calls->rowCount(), 1, 15000);
    QTRY_VERIFY(button("answerButton")->isEnabled());
    QTest::mouseClick(button("answerButton"), Qt::LeftButton);
    QTRY_COMPARE(callState(), QStringLiteral("talking"));

    // The colleague is found by the search field and picked in the panel.
    QTest::keyClicks(m_window->findChild<QLineEdit*>(QStringLiteral("extensionSearch")),
                     QStringLiteral("kell"));
    auto* view = m_window->findChild<QTreeView*>(QStringLiteral("extensionView"));
    QTRY_COMPARE(view->model()->rowCount(), 1);
    view->setCurrentIndex(view->model()->index(0, 0));
    view->selectionModel()->select(view->model()->index(0, 0),
                                   QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    QTRY_VERIFY(button("transferButton")->isEnabled());
    QTest::mouseClick(button("transferButton"), Qt::LeftButton);

    QVERIFY(!m_sim->waitForLine(QStringLiteral("redirected to 1001")).isEmpty());
    QTRY_COMPARE(calls->rowCount(), 0);
    QTRY_COMPARE(view->model()->index(0, ExtensionModel::LineColumn).data().toString(),
                 QStringLiteral("ringing"));
    screenshot(QStringLiteral("6-transferred"));
}

void TestSwitchboard::voicemailIsDownloadedAsWave()
{
    auto* messages = m_window->findChild<QTableWidget*>(QStringLiteral("voicemailView"));
    QTRY_VERIFY(messages->rowCount() > 0);
    messages->selectRow(0);
    QVERIFY(!button("playVoicemailButton")->isEnabled());
    QTest::mouseClick(button("downloadVoicemailButton"), Qt::LeftButton);
    // The file column fills in when the library has saved the wave file.
    QTRY_VERIFY_WITH_TIMEOUT(!messages->item(0, 2)->text().isEmpty(), 15000);
    const QFileInfo wave(messages->item(0, 2)->text());
    QVERIFY(wave.absoluteFilePath().startsWith(m_dataDir.path() + QStringLiteral("/voicemail/")));
    QCOMPARE(wave.suffix(), QStringLiteral("wav"));
    QVERIFY(wave.size() > 44); // a header and some sound

    // Play hands the file to the desktop; here a handler of file: links takes it.
    UrlCatcher player;
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &player, "open");
    QTest::mouseClick(button("playVoicemailButton"), Qt::LeftButton);
    QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
    QCOMPARE(player.opened, QList<QUrl> {QUrl::fromLocalFile(wave.absoluteFilePath())});
}

void TestSwitchboard::chatWithAColleague()
{
    if (!m_chat)
        QSKIP("prosody is not installed");
    // Bruno Keller logs in from a client of his own.
    QTemporaryDir brunoDir;
    Telvix bruno(QStringLiteral("Linux"), QStringLiteral("6.1"), QStringLiteral("switchboard-test"),
                 QStringLiteral("1.0"), QStringLiteral("bruno-device"), brunoDir.path());
    bruno.init();
    QSignalSpy brunoChat(&bruno, &Telvix::sigChatConnected);
    QSignalSpy brunoMessages(&bruno, &Telvix::sigChatMessage);
    bruno.connectToServer(QStringLiteral("1001"), QStringLiteral("1001"), QString(), TELVIX::AppModeSrntPro,
                          QStringLiteral("127.0.0.1"), m_port);
    QTRY_VERIFY_WITH_TIMEOUT(brunoChat.count() > 0, 15000);
    // His client maps chat ids to extensions with the extension list.
    QSignalSpy brunoBook(&bruno, &Telvix::sigPhonebookChanged);
    bruno.getContactsList(false, TELVIX::PhonebookTypeExtensions);
    QTRY_VERIFY(brunoBook.count() > 0);

    auto* tabs = m_window->findChild<ChatPanel*>(QStringLiteral("chatPanel"));
    auto* pages = qobject_cast<QTabWidget*>(tabs->parentWidget()->parentWidget());
    QTRY_VERIFY_WITH_TIMEOUT(pages->isTabEnabled(pages->indexOf(tabs)), 15000);
    auto* search = m_window->findChild<QLineEdit*>(QStringLiteral("extensionSearch"));
    search->clear();
    QTest::keyClicks(search, QStringLiteral("bruno"));
    auto* view = m_window->findChild<QTreeView*>(QStringLiteral("extensionView"));
    QTRY_COMPARE(view->model()->rowCount(), 1);
    // Bruno's chat presence reaches the panel by the extension status.
    QTRY_VERIFY_WITH_TIMEOUT(view->model()->index(0, 0).data(ExtensionModel::CanChatRole).toBool(), 10000);
    const QRect row = view->visualRect(view->model()->index(0, 0));
    // A view takes a double click only on the row pressed before it.
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, row.center());
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, row.center());
    QTRY_COMPARE(tabs->count(), 1);
    QCOMPARE(tabs->tabText(0), QStringLiteral("Bruno Keller"));

    auto* input = tabs->widget(0)->findChild<QLineEdit*>();
    auto* log = tabs->widget(0)->findChild<QTextBrowser*>();
    QTest::keyClicks(input, QStringLiteral("Can you take the Acme call?"));
    QTest::keyClick(input, Qt::Key_Return);
    QTRY_VERIFY_WITH_TIMEOUT(log->toPlainText().contains(QLatin1String("You: Can you take the Acme call?")),
                             10000);
    QTRY_VERIFY_WITH_TIMEOUT(brunoMessages.count() > 0, 10000);
    QCOMPARE(brunoMessages.last().at(0).value<ChatMessage>().body,
             QStringLiteral("Can you take the Acme call?"));

    bruno.sendChatMessage(QStringLiteral("1000"), QStringLiteral("Sure, put it through."));
    QTRY_VERIFY_WITH_TIMEOUT(
        log->toPlainText().contains(QLatin1String("Bruno Keller: Sure, put it through.")), 10000);
    screenshot(QStringLiteral("7-chat"));
    bruno.shutdown();
}

// Click to dial: the desktop starts the program again with the link; that
// start hands it to the switchboard already running, which dials it.
void TestSwitchboard::linkOfASecondStartIsDialledByTheFirst()
{
    const QString instance = QStringLiteral("tst-switchboard-%1").arg(QCoreApplication::applicationPid());
    QTemporaryDir dataDir;
    ToolProcess first(QStringLiteral(SWITCHBOARD_APP),
                      {QStringLiteral("--login"), QStringLiteral("--server"),
                       QStringLiteral("127.0.0.1:%1").arg(m_port), QStringLiteral("--user"),
                       QStringLiteral("1002"), QStringLiteral("--password"), QStringLiteral("1002"),
                       QStringLiteral("--data-dir"), dataDir.path(), QStringLiteral("--instance"), instance});
    QVERIFY(first.start());
    QVERIFY(!m_sim->waitForLine(QStringLiteral("1002 (Chiara Lambert) logged in")).isEmpty());

    ToolProcess second(QStringLiteral(SWITCHBOARD_APP),
                       {QStringLiteral("--instance"), instance, QStringLiteral("tel:+39-02-1234-5678")});
    QVERIFY(second.start());
    QVERIFY(second.waitForExit(10000));
    QCOMPARE(second.exitCode(), 0);
    QVERIFY(!m_sim->waitForLine(QStringLiteral("1002 dials 0212345678")).isEmpty());
}

void TestSwitchboard::lostSessionComesBackByItself()
{
    // The scenario restarts the simulator on this request: every client is
    // dropped, and new connections are refused for a moment.
    m_client->getTenantList();
    QTRY_VERIFY_WITH_TIMEOUT(state().contains(QLatin1String("Reconnecting in")), 10000);
    QVERIFY2(state().startsWith(QLatin1String("Disconnected: the server closed the connection.")),
             qPrintable(state()));
    screenshot(QStringLiteral("8-reconnecting"));
    QTRY_VERIFY_WITH_TIMEOUT(state().startsWith(QLatin1String("Connected")), 20000);
    // The panels asked for their lists again with the new session.
    ExtensionModel* colleagues = m_window->extensions()->model();
    QTRY_COMPARE(colleagues->rowCount(), 9);
    QTRY_VERIFY(colleagues->index(0, ExtensionModel::LineColumn).data().toString()
                != QLatin1String("unknown"));
}

void TestSwitchboard::lostConnectionIsToldInWords()
{
    // Without retries the reason stays on show.
    m_window->findChild<TelvixReconnector*>()->stop();
    delete m_sim;
    m_sim = nullptr;
    QTRY_COMPARE_WITH_TIMEOUT(state(), QStringLiteral("Disconnected: the server closed the connection"),
                              10000);
    QCOMPARE(m_window->extensions()->model()->index(0, ExtensionModel::LineColumn).data().toString(),
             QStringLiteral("unknown"));
    screenshot(QStringLiteral("9-disconnected"));
}

// A fresh simulator knows nothing of the calls taken above: the one shown
// comes from the history the library stored in the data directory.
void TestSwitchboard::storedHistoryIsShownAfterARestart()
{
    stopWindow();
    startSimulator({});
    startWindow();
    QTRY_VERIFY_WITH_TIMEOUT(state().startsWith(QLatin1String("Connected")), 10000);
    QTRY_VERIFY(history()->rowCount() > 0);
    QVERIFY(history()->item(0, 1)->text().contains(QLatin1String("0612345678")));
    QVERIFY(history()->item(0, 0)->text().startsWith(QDate::currentDate().toString(Qt::ISODate)));
}

QTEST_MAIN(TestSwitchboard)
#include "tst_switchboard.moc"
