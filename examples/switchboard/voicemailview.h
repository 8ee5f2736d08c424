#pragma once

#include "voicemailmessages.h"

#include <QHash>
#include <QWidget>

class QPushButton;
class QTableWidget;
class Telvix;

/// The voicemail messages: download one as a wave file, then open it with
/// the desktop's player.
class VoicemailView : public QWidget
{
    Q_OBJECT
public:
    /// Downloads go to `folder`.
    VoicemailView(Telvix* client, const QString& folder, QWidget* parent = nullptr);

private:
    void showMessages(const QList<VoicemailMessage>& messages);
    QString selectedId() const;
    void updateActions();

    Telvix* m_client;
    QString m_folder;
    QList<VoicemailMessage> m_messages;
    /// Message id to its downloaded wave file.
    QHash<QString, QString> m_files;
    QTableWidget* m_table;
    QPushButton* m_download;
    QPushButton* m_open;
};
