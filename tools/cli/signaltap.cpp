#include "signaltap.h"

#include "jsonconvert.h"

SignalTap::SignalTap(QObject* source, const QMetaObject& declaringClass, Handler handler, QObject* parent)
    : QObject(parent)
    , m_handler(std::move(handler))
{
    const QMetaObject* meta = source->metaObject();
    // Our own "slots" are numbered after QObject's methods: slot k receives
    // m_signals[k]. qt_metacall below is where they land.
    const int firstSlot = QObject::staticMetaObject.methodCount();
    for (int i = declaringClass.methodOffset(); i < declaringClass.methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        if (method.methodType() != QMetaMethod::Signal)
            continue;
        QMetaObject::connect(source, i, this, firstSlot + m_signals.size(), Qt::DirectConnection);
        m_signals.append(method);
    }
}

int SignalTap::qt_metacall(QMetaObject::Call call, int id, void** argv)
{
    id = QObject::qt_metacall(call, id, argv);
    if (id < 0 || call != QMetaObject::InvokeMetaMethod)
        return id;
    if (id < m_signals.size()) {
        const QMetaMethod signal = m_signals.at(id);
        const QJsonArray args = argumentsOf(signal, argv);
        QMetaObject::invokeMethod(
            this, [this, signal, args] { m_handler(signal, args); }, Qt::QueuedConnection);
    }
    return id - m_signals.size();
}

QJsonArray SignalTap::argumentsOf(const QMetaMethod& signal, void** argv) const
{
    QJsonArray args;
    const QList<QByteArray> typeNames = signal.parameterTypes();
    for (int i = 0; i < signal.parameterCount(); ++i) {
        int type = signal.parameterType(i);
        if (type == QMetaType::UnknownType)
            type = QMetaType::type(typeNames.at(i).constData());
        args.append(JsonConvert::toJson(type, argv[i + 1]));
    }
    return args;
}
