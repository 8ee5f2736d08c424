#pragma once

#include <QWidget>

class ExtensionModel;
class QLineEdit;
class ExtensionFilter;
class QTreeView;
class Telvix;

/// The colleagues with their line status, and a search field that filters
/// them by name or number as one types.
class ExtensionPanel : public QWidget
{
    Q_OBJECT
public:
    explicit ExtensionPanel(Telvix* client, QWidget* parent = nullptr);

    /// The extension of the selected colleague; empty when none.
    QString selectedExten() const;
    QString nameOf(const QString& exten) const;
    ExtensionModel* model() const { return m_model; }

Q_SIGNALS:
    /// The user asked to chat with (double-clicked) a colleague who can chat.
    void chatRequested(const QString& exten);
    void selectionChanged();

private:
    ExtensionModel* m_model;
    ExtensionFilter* m_filter;
    QLineEdit* m_search;
    QTreeView* m_view;
};
