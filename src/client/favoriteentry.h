#pragma once

#include "phonebook.h"
#include "telvix_export.h"

#include <QList>
#include <QMetaType>
#include <QString>

/// \brief One of the user's favourite numbers, kept on this device only.
///
/// The favourite's name is the display name of the base class; the other
/// base fields are neither stored nor compared.
class TELVIX_EXPORT FavoriteEntry : public PhoneBookEntry
{
    Q_GADGET
    Q_PROPERTY(QString type MEMBER type)
    Q_PROPERTY(QString number MEMBER number)

public:
    /// Free text chosen by the application, e.g. "exten" or "mobile".
    QString type;
    QString number;

    /// Equal when type, number and display name are.
    bool operator==(const FavoriteEntry& other) const;
    bool operator!=(const FavoriteEntry& other) const { return !(*this == other); }
};

Q_DECLARE_METATYPE(FavoriteEntry)
