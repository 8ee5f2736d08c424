#include "telephoneuri.h"

#include <QByteArray>
#include <QRegularExpression>
#include <QStringList>

namespace {

// One failure text, returned up the call chain together with an empty result.
struct Failure
{
    QString reason;
};

bool isHex(QChar c)
{
    return (c >= QLatin1Char('0') && c <= QLatin1Char('9'))
        || (c >= QLatin1Char('a') && c <= QLatin1Char('f'))
        || (c >= QLatin1Char('A') && c <= QLatin1Char('F'));
}

// Decodes %XX escapes as UTF-8. A "%" without two hex digits is an error
// rather than a literal, so that a damaged link is never dialled half-read.
bool percentDecode(const QString& in, QString* out, Failure* failure)
{
    if (!in.contains(QLatin1Char('%'))) {
        *out = in;
        return true;
    }
    QByteArray bytes;
    const QByteArray utf8 = in.toUtf8();
    for (int i = 0; i < utf8.size(); ++i) {
        if (utf8.at(i) != '%') {
            bytes.append(utf8.at(i));
            continue;
        }
        if (i + 2 >= utf8.size() || !isHex(QLatin1Char(utf8.at(i + 1)))
            || !isHex(QLatin1Char(utf8.at(i + 2)))) {
            failure->reason = QStringLiteral("bad percent-encoding in \"%1\"").arg(in);
            return false;
        }
        bytes.append(char(utf8.mid(i + 1, 2).toInt(nullptr, 16)));
        i += 2;
    }
    *out = QString::fromUtf8(bytes);
    return true;
}

bool isVisualSeparator(QChar c)
{
    return c == QLatin1Char('-') || c == QLatin1Char('.') || c == QLatin1Char('(') || c == QLatin1Char(')')
        || c.isSpace();
}

QString withoutSeparators(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (!isVisualSeparator(c))
            out.append(c);
    }
    return out;
}

// A global number: "+" and at least one digit; only digits after it.
bool isGlobalDigits(const QString& bare)
{
    static const QRegularExpression rx(QStringLiteral("^\\+[0-9]+$"));
    return rx.match(bare).hasMatch();
}

// A local number: hex digits (A to D are DTMF keys), "*" and "#".
bool isLocalDigits(const QString& bare)
{
    static const QRegularExpression rx(QStringLiteral("^[0-9A-Fa-f*#]+$"));
    return rx.match(bare).hasMatch();
}

// A telephone number as written in a link: separators dropped, local digits
// upper-cased; empty when it is no number.
QString dialableNumber(const QString& decoded)
{
    const QString bare = withoutSeparators(decoded);
    if (isGlobalDigits(bare))
        return bare;
    if (!bare.startsWith(QLatin1Char('+')) && isLocalDigits(bare))
        return bare.toUpper();
    return QString();
}

QString fromTel(const QString& body, Failure* failure)
{
    const QStringList parts = body.split(QLatin1Char(';'));
    QString number;
    if (!percentDecode(parts.first(), &number, failure))
        return QString();
    if (withoutSeparators(number).isEmpty()) {
        failure->reason = QStringLiteral("no telephone number");
        return QString();
    }
    const QString dial = dialableNumber(number);
    if (dial.isEmpty()) {
        failure->reason = QStringLiteral("\"%1\" is not a telephone number").arg(number);
        return QString();
    }
    const bool global = dial.startsWith(QLatin1Char('+'));

    static const QRegularExpression nameRx(QStringLiteral("^[A-Za-z0-9-]+$"));
    static const QRegularExpression domainRx(QStringLiteral("^[A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9.])?$"));
    QStringList seen;
    for (int i = 1; i < parts.size(); ++i) {
        const QString& param = parts.at(i);
        const int eq = param.indexOf(QLatin1Char('='));
        const QString name = (eq < 0 ? param : param.left(eq)).toLower();
        QString value;
        if (!nameRx.match(name).hasMatch()) {
            failure->reason = QStringLiteral("bad parameter \"%1\"").arg(param);
            return QString();
        }
        if (eq >= 0 && !percentDecode(param.mid(eq + 1), &value, failure))
            return QString();
        if (eq >= 0 && value.isEmpty()) {
            failure->reason = QStringLiteral("parameter \"%1\" has an empty value").arg(name);
            return QString();
        }
        if (seen.contains(name)) {
            failure->reason = QStringLiteral("parameter \"%1\" given twice").arg(name);
            return QString();
        }
        seen.append(name);

        if (name == QLatin1String("ext")) {
            static const QRegularExpression extRx(QStringLiteral("^[0-9]+$"));
            if (!extRx.match(withoutSeparators(value)).hasMatch()) {
                failure->reason = QStringLiteral("bad extension \"%1\"").arg(value);
                return QString();
            }
        } else if (name == QLatin1String("isub")) {
            if (value.isEmpty()) {
                failure->reason = QStringLiteral("empty subaddress");
                return QString();
            }
        } else if (name == QLatin1String("phone-context")) {
            if (global) {
                failure->reason = QStringLiteral("a global number takes no phone-context");
                return QString();
            }
            const bool digits
                = value.startsWith(QLatin1Char('+')) && isGlobalDigits(withoutSeparators(value));
            if (!digits && !domainRx.match(value).hasMatch()) {
                failure->reason = QStringLiteral("bad phone-context \"%1\"").arg(value);
                return QString();
            }
        }
    }
    return dial;
}

QString fromCallto(QString body, Failure* failure)
{
    if (body.startsWith(QLatin1String("//")))
        body.remove(0, 2);
    // Clients append "?..." options and "/" verbs; neither is dialled.
    const int end = body.indexOf(QRegularExpression(QStringLiteral("[?/]")));
    if (end >= 0)
        body.truncate(end);
    QString decoded;
    if (!percentDecode(body, &decoded, failure))
        return QString();
    const QString dial = dialableNumber(decoded.trimmed());
    if (dial.isEmpty())
        failure->reason = decoded.trimmed().isEmpty()
            ? QStringLiteral("no telephone number")
            : QStringLiteral("\"%1\" is not a telephone number").arg(decoded);
    return dial;
}

QString fromSip(const QString& body, Failure* failure)
{
    const int at = body.indexOf(QLatin1Char('@'));
    if (at <= 0) {
        failure->reason = QStringLiteral("no user part");
        return QString();
    }
    if (at == body.size() - 1) {
        failure->reason = QStringLiteral("no host part");
        return QString();
    }
    // userinfo = user [":" password]; the user may carry ";" parameters.
    QString user = body.left(at);
    const int colon = user.indexOf(QLatin1Char(':'));
    if (colon >= 0)
        user.truncate(colon);
    const int semicolon = user.indexOf(QLatin1Char(';'));
    if (semicolon >= 0)
        user.truncate(semicolon);
    QString decoded;
    if (!percentDecode(user, &decoded, failure))
        return QString();
    if (decoded.trimmed().isEmpty()) {
        failure->reason = QStringLiteral("no user part");
        return QString();
    }
    const QString dial = dialableNumber(decoded);
    if (!dial.isEmpty())
        return dial;
    for (const QChar c : decoded) {
        if (c.isSpace() || c.category() == QChar::Other_Control) {
            failure->reason = QStringLiteral("bad user part \"%1\"").arg(decoded);
            return QString();
        }
    }
    return decoded;
}

} // namespace

QString TelephoneUri::toDialString(const QString& uri, QString* error)
{
    const QString text = uri.trimmed();
    const int colon = text.indexOf(QLatin1Char(':'));
    const QString scheme = colon < 0 ? QString() : text.left(colon).toLower();
    const QString body = text.mid(colon + 1);

    Failure failure;
    QString dial;
    if (text.isEmpty())
        failure.reason = QStringLiteral("empty URI");
    else if (scheme == QLatin1String("tel"))
        dial = fromTel(body, &failure);
    else if (scheme == QLatin1String("callto"))
        dial = fromCallto(body, &failure);
    else if (scheme == QLatin1String("sip") || scheme == QLatin1String("sips"))
        dial = fromSip(body, &failure);
    else
        failure.reason = scheme.isEmpty() ? QStringLiteral("no URI scheme in \"%1\"").arg(text)
                                          : QStringLiteral("unsupported URI scheme \"%1\"").arg(scheme);

    if (dial.isEmpty() && failure.reason.isEmpty())
        failure.reason = QStringLiteral("nothing to dial");
    if (error)
        *error = dial.isEmpty() ? failure.reason : QString();
    return dial;
}
