#include "mainwindow.h"

#include "callspanel.h"
#include "chatpanel.h"
#include "extensionpanel.h"
#include "historyview.h"
#include "reasontext.h"
#include "telephoneuri.h"
#include "telvix.h"
#include "telvixreconnector.h"
#include "voicemailview.h"

#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>

MainWindow::MainWindow(Telvix* client, const QString& dataDir, QWidget* parent)
    : QMainWindow(parent)
    , m_client(client)
    , m_extensions(new ExtensionPanel(client))
    , m_calls(new CallsPanel(client, m_extensions))
    , m_chat(new ChatPanel(client))
    , m_tabs(new QTabWidget)
    , m_state(new QLabel)
{
    setWindowTitle(tr("Switchboard"));
    m_tabs->addTab(new HistoryView(client), tr("History"));
    m_tabs->addTab(new VoicemailView(client, dataDir + QStringLiteral("/voicemail")), tr("Voicemail"));
    const int chatTab = m_tabs->addTab(m_chat, tr("Chat"));
    m_tabs->setTabEnabled(chatTab, false);
    connect(m_chat, &ChatPanel::availabilityChanged, this,
            [this, chatTab](bool on) { m_tabs->setTabEnabled(chatTab, on); });
    connect(m_extensions, &ExtensionPanel::chatRequested, this, [this, chatTab](const QString& exten) {
        if (!m_tabs->isTabEnabled(chatTab))
            return;
        m_chat->openChat(exten, m_extensions->nameOf(exten));
        m_tabs->setCurrentIndex(chatTab);
    });

    auto* right = new QSplitter(Qt::Vertical);
    right->addWidget(m_calls);
    right->addWidget(m_tabs);
    right->setSizes({250, 400});
    auto* main = new QSplitter(Qt::Horizontal);
    main->addWidget(m_extensions);
    main->addWidget(right);
    main->setStretchFactor(1, 2);
    main->setSizes({360, 740});
    setCentralWidget(main);

    m_state->setObjectName(QStringLiteral("connectionState"));
    // Permanent: a passing message (a link that cannot be dialled, a
    // reconnection) shows beside it and never hides it.
    statusBar()->addPermanentWidget(m_state);
    setState(QStringLiteral("gray"), tr("Not connected"));

    QMenu* session = menuBar()->addMenu(tr("&Session"));
    // Both are queued to the library's thread; the outcome comes back as
    // loggedToServer or disconnectedFromServer.
    session->addAction(tr("&Reconnect"), this, [this] {
        setState(QStringLiteral("orange"),
                 tr("Connecting to %1:%2...").arg(m_settings.host).arg(m_settings.port));
        m_reconnector->start(); // it may have given up, after a log-out say
        m_client->reconnectToServer();
    });
    session->addAction(tr("&Log out"), this, [this] { m_client->logout(); });
    session->addSeparator();
    session->addAction(tr("&Quit"), qApp, &QApplication::quit);

    // Queued connections: the library raises its signals on its own thread.
    connect(client, &Telvix::loggedToServer, this, &MainWindow::onLoggedIn);
    connect(client, &Telvix::disconnectedFromServer, this, &MainWindow::onDisconnected);

    // The library never reconnects by itself; this helper of the extras layer
    // does, through the public methods only. It lives on the GUI thread. Made
    // after the connections above, so that onDisconnected() has shown the
    // reason before waiting() adds the retry to it. Nothing is named to it
    // for asking again: every panel asks for its lists at each login.
    m_reconnector = new TelvixReconnector(client, this);
    connect(m_reconnector, &TelvixReconnector::waiting, this, [this](int attempt, int delayMs) {
        setState(QStringLiteral("orange"),
                 tr("%1. Reconnecting in %2 s (attempt %3)")
                     .arg(m_disconnection)
                     .arg((delayMs + 999) / 1000)
                     .arg(attempt));
    });
    connect(m_reconnector, &TelvixReconnector::reconnected, this, [this](qint64 downtimeMs) {
        statusBar()->showMessage(tr("Back after %1 s without a connection").arg((downtimeMs + 999) / 1000),
                                 10000);
    });
}

void MainWindow::connectTo(const LoginSettings& settings)
{
    m_settings = settings;
    // A plain setting read when the socket is made: set it before connecting.
    m_client->ignoreSslErrors(!settings.verifyTls);
    // Queued: it returns at once; the outcome is loggedToServer, or
    // disconnectedFromServer with the reason.
    m_client->connectToServer(settings.user, settings.password, settings.domain, settings.mode, settings.host,
                              settings.port);
    setState(QStringLiteral("orange"), tr("Connecting to %1:%2...").arg(settings.host).arg(settings.port));
}

void MainWindow::dial(const QString& number)
{
    if (m_loggedIn)
        m_calls->dial(number);
    else
        m_pendingDial = number;
}

void MainWindow::openLink(const QString& link)
{
    raise();
    activateWindow();
    if (link.isEmpty())
        return;
    // A plain function of the extras layer: no thread involved.
    QString error;
    const QString number = TelephoneUri::toDialString(link, &error);
    if (number.isEmpty())
        statusBar()->showMessage(tr("Cannot dial %1: %2").arg(link, error), 10000);
    else
        dial(number);
}

void MainWindow::onLoggedIn(const LoginDetails& details)
{
    m_loggedIn = true;
    const QString name = QStringLiteral("%1 %2").arg(details.firstName, details.lastName).trimmed();
    setState(QStringLiteral("green"),
             tr("Connected to %1:%2 as %3 (%4)")
                 .arg(m_settings.host)
                 .arg(m_settings.port)
                 .arg(name, details.exten));
    if (!m_pendingDial.isEmpty())
        m_calls->dial(m_pendingDial);
    m_pendingDial.clear();
}

void MainWindow::onDisconnected(const QString& reason)
{
    m_loggedIn = false;
    m_disconnection = tr("Disconnected: %1").arg(reasonText(reason));
    setState(QStringLiteral("red"), m_disconnection);
}

void MainWindow::setState(const QString& colour, const QString& text)
{
    m_state->setText(
        QStringLiteral("<span style=\"color:%1\">&#9679;</span> %2").arg(colour, text.toHtmlEscaped()));
    m_state->setToolTip(text);
}
