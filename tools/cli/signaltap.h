#pragma once

#include <QJsonArray>
#include <QMetaMethod>
#include <QObject>
#include <QVector>

#include <functional>

/// \brief Catches every signal that a class declares on one object, found
/// through the meta-object system, so that signals added to the class later
/// are caught without a change here.
///
/// The signals are connected directly: the arguments are turned into JSON on
/// the emitting thread while they are still alive, and the handler then runs
/// on the tap's own thread, in emission order.
class SignalTap : public QObject
{
public:
    using Handler = std::function<void(const QMetaMethod& signal, const QJsonArray& args)>;

    /// Taps the signals that `declaringClass` itself declares (not those of
    /// its bases) on `source`.
    SignalTap(QObject* source, const QMetaObject& declaringClass, Handler handler, QObject* parent = nullptr);

    /// The tapped signals, in declaration order.
    const QVector<QMetaMethod>& tappedSignals() const { return m_signals; }

    int qt_metacall(QMetaObject::Call call, int id, void** argv) override;

private:
    QJsonArray argumentsOf(const QMetaMethod& signal, void** argv) const;

    QVector<QMetaMethod> m_signals;
    Handler m_handler;
};
