#include "favoriteentry.h"

namespace {
void registerFavoriteTypes()
{
    qRegisterMetaType<FavoriteEntry>("FavoriteEntry");
    qRegisterMetaType<QList<FavoriteEntry>>("QList<FavoriteEntry>");
}
} // namespace

Q_CONSTRUCTOR_FUNCTION(registerFavoriteTypes)

bool FavoriteEntry::operator==(const FavoriteEntry& other) const
{
    return type == other.type && number == other.number && displayName == other.displayName;
}
