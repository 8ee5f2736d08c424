#pragma once

#include <QWidget>

class CallsModel;
class ExtensionPanel;
class QLineEdit;
class QPushButton;
class QTableView;
class Telvix;

/// The calls in progress and what can be done with the selected one: answer
/// it on the desk phone, hang up, hold, transfer it to the colleague selected
/// in the extension panel. Also a number field to place a call.
class CallsPanel : public QWidget
{
    Q_OBJECT
public:
    CallsPanel(Telvix* client, ExtensionPanel* colleagues, QWidget* parent = nullptr);

    CallsModel* model() const { return m_model; }
    /// Places a call from the user's extension to `number`.
    void dial(const QString& number);

private:
    int selectedRow() const;
    void updateActions();

    Telvix* m_client;
    ExtensionPanel* m_colleagues;
    CallsModel* m_model;
    QTableView* m_view;
    QLineEdit* m_number;
    QPushButton* m_answer;
    QPushButton* m_hangup;
    QPushButton* m_hold;
    QPushButton* m_transfer;
};
