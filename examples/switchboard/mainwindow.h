#pragma once

#include "loginsettings.h"

#include <QMainWindow>

class CallsPanel;
class ChatPanel;
class ExtensionPanel;
class QLabel;
class QTabWidget;
class Telvix;
class TelvixReconnector;
struct LoginDetails;

/// The switchboard: colleagues on the left, calls on the right, history,
/// voicemail and chat below, the connection state in the status bar.
///
/// `client` lives on its own thread (init() was called) and outlives the
/// window; everything here talks to it through its signals and its public
/// methods only.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    MainWindow(Telvix* client, const QString& dataDir, QWidget* parent = nullptr);

    void connectTo(const LoginSettings& settings);
    /// Places a call now, or as soon as the login is through.
    void dial(const QString& number);
    /// Dials a tel:, callto: or sip: link; an empty one only raises the window.
    void openLink(const QString& link);

    CallsPanel* calls() const { return m_calls; }
    ExtensionPanel* extensions() const { return m_extensions; }

private:
    void onLoggedIn(const LoginDetails& details);
    void onDisconnected(const QString& reason);
    void setState(const QString& colour, const QString& text);

    Telvix* m_client;
    LoginSettings m_settings;
    bool m_loggedIn = false;
    QString m_pendingDial;
    /// The last disconnection, in words.
    QString m_disconnection;
    ExtensionPanel* m_extensions;
    CallsPanel* m_calls;
    ChatPanel* m_chat;
    QTabWidget* m_tabs;
    QLabel* m_state;
    TelvixReconnector* m_reconnector;
};
