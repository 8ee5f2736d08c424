#pragma once

#include <QObject>

class QSocketNotifier;

/// \brief Turns SIGINT and SIGTERM into a Qt signal raised from the event
/// loop, so that a tool can end in order instead of in a signal handler.
class StopSignals : public QObject
{
    Q_OBJECT
public:
    explicit StopSignals(QObject* parent = nullptr);

Q_SIGNALS:
    void stopRequested();

private:
    QSocketNotifier* m_notifier = nullptr;
};
