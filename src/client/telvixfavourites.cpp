// Favourites: the user's short list of numbers, mirrored to "srnt.ini" in
// the data directory on every change. The server knows nothing of them.
#include "telvix_p.h"

#include <QSettings>

namespace {
const QString FavouritesFile = QStringLiteral("/srnt.ini");
const QString FavouritesGroup = QStringLiteral("FAVOURITES");
const QString KeyType = QStringLiteral("type");
const QString KeyNumber = QStringLiteral("number");
const QString KeyName = QStringLiteral("name");
} // namespace

// ---- public facade ------------------------------------------------------

bool Telvix::getFavoriteList()
{
    TELVIX_QUEUED(d->getFavoriteList());
}

bool Telvix::addFavourite(const FavoriteEntry& entry)
{
    TELVIX_QUEUED(d->addFavourite(entry));
}

bool Telvix::deleteFavourite(const FavoriteEntry& entry)
{
    TELVIX_QUEUED(d->deleteFavourite(entry));
}

// ---- on the library's thread --------------------------------------------

bool TelvixPrivate::getFavoriteList()
{
    Q_Q(Telvix);
    TLOG(1000) << "Getting Favorites.";
    // An empty list may also mean "never loaded": the file is read again.
    if (m_favorites.isEmpty())
        loadFavoritesFromFile();
    Q_EMIT q->sigFavouritesChanged(m_favorites);
    return true;
}

bool TelvixPrivate::addFavourite(const FavoriteEntry& entry)
{
    TLOG(1000) << "Adding favorites: type " << entry.type << " num " << entry.number;
    m_favorites.append(entry);
    saveFavoritesToFile();
    return true;
}

bool TelvixPrivate::deleteFavourite(const FavoriteEntry& entry)
{
    TLOG(1000) << "Deleting favorites: type " << entry.type << " num " << entry.number;
    m_favorites.removeAll(entry);
    saveFavoritesToFile();
    return true;
}

void TelvixPrivate::loadFavoritesFromFile()
{
    QSettings settings(dataDir + FavouritesFile, QSettings::IniFormat);
    settings.beginGroup(FavouritesGroup);
    // childGroups() sorts as text: from ten entries on, "10" comes before "2".
    const QStringList groups = settings.childGroups();
    for (const QString& group : groups) {
        settings.beginGroup(group);
        FavoriteEntry entry;
        entry.type = settings.value(KeyType, QString()).toString();
        entry.number = settings.value(KeyNumber, QString()).toString();
        entry.displayName = settings.value(KeyName, QString()).toString();
        settings.endGroup();
        if (!entry.number.isEmpty())
            m_favorites.append(entry);
    }
    settings.endGroup();
}

void TelvixPrivate::saveFavoritesToFile() const
{
    QSettings settings(dataDir + FavouritesFile, QSettings::IniFormat);
    settings.beginGroup(FavouritesGroup);
    settings.remove(QString());
    for (int i = 0; i < m_favorites.size(); ++i) {
        const FavoriteEntry& entry = m_favorites.at(i);
        settings.beginGroup(QString::number(i));
        settings.setValue(KeyType, entry.type);
        settings.setValue(KeyNumber, entry.number);
        settings.setValue(KeyName, entry.displayName);
        settings.endGroup();
    }
    settings.endGroup();
}
