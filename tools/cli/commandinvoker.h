#pragma once

#include <functional>

#include <QJsonArray>
#include <QJsonValue>
#include <QMetaMethod>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVector>

class QObject;

/// \brief Calls the public methods of one object by name, with arguments
/// given as JSON or as words typed by a person, found through the
/// meta-object system: every Q_INVOKABLE method and public slot that the
/// class declares can be called, and one added later needs no change here.
///
/// Overloads (and the shorter forms that default arguments make) are told
/// apart by the number of arguments, then by which one the arguments convert
/// to. While the target's own thread runs, a call is made on that thread and
/// waited for, so that methods meant for the library's thread are safe to
/// call; methods named in setCallerThreadMethods() run on the caller's.
class CommandInvoker
{
public:
    struct Result
    {
        bool ok = false;
        /// The normalised signature of the method called.
        QString signature;
        QJsonValue value;
        QString error;
    };

    CommandInvoker(QObject* target, const QMetaObject& declaringClass);

    void setCallerThreadMethods(const QSet<QByteArray>& names) { m_callerThread = names; }

    bool hasMethod(const QString& name) const;
    /// Every callable method, as "name(Type, Type) -> Type".
    QStringList descriptions() const;

    Result invoke(const QString& name, const QJsonArray& args) const;
    /// Each word becomes the text of a QString parameter as it is; for any
    /// other parameter it is read as JSON (42, true, {"a":1}, [1,2]) or, when
    /// it is not JSON, as a string (an enumeration key, a date).
    Result invokeWords(const QString& name, const QStringList& words) const;

    /// Splits a typed line into words: blanks separate; "double quotes"
    /// (with backslash escapes) and 'single quotes' group; a JSON object or
    /// array stays one word.
    static QStringList splitWords(const QString& line, QString* error);

private:
    QVector<QMetaMethod> candidates(const QString& name, int argCount, QString* error) const;
    bool convertArguments(const QMetaMethod& method, const QJsonArray& args, QVariantList* values,
                          QString* error) const;
    Result call(const QMetaMethod& method, const QVariantList& values) const;
    /// Calls the first overload of `name` with `argCount` parameters whose
    /// arguments, as `argsFor` gives them, convert.
    Result invokeFirstFitting(const QString& name, int argCount,
                              const std::function<QJsonArray(const QMetaMethod&)>& argsFor) const;

    QObject* m_target;
    QVector<QMetaMethod> m_methods;
    QSet<QByteArray> m_callerThread;
};
