#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QDir>
#include <QString>
#include <QStringList>

class QByteArray;
class QJsonArray;
class QJsonObject;

namespace vn::crypto {
class PrivateKey;
}

namespace vn::account {

class AccessToken;
class Account;

/// A named on-disk store of the account's state: one folder below the platform's profile location,
/// one file per entry, named exactly as the entry.
///
/// The folder is private to the user (0700) and every entry file is 0600, whatever the umask: the
/// store holds the access token and the client's private key. Every write replaces its file
/// atomically and syncs it to disk; a failed write leaves the previous content whole. A write in
/// progress is a hidden ".pending.*" file, never an entry; one left by a process killed in mid-write
/// is removed by the next profile object opened on the folder. Reads never fail: a missing,
/// unreadable or malformed entry gives an empty value. The process-wide profile is
/// Account::profile().
class VANTROACCOUNT_EXPORT Profile
{
public:
    /// The name used when none is given: "default".
    static const QString DefaultProfileName;

    /// Copies the name and opens that profile's folder afresh, creating it again if it has gone.
    Profile(const Profile &other);
    /// Takes the name from @p other, which is left with an empty name, and opens the folder afresh.
    Profile(Profile &&other);
    /// Assigns the name only: reads and writes keep going to this object's own folder.
    Profile &operator=(const Profile &other);
    /// Assigns the name only, as the copy assignment does.
    Profile &operator=(Profile &&other);
    virtual ~Profile();

    QString name() const;

    bool hasEntry(const QString &entry) const;
    /// The entry files, sorted by UTF-16 code unit (case-sensitive); folders and hidden files are
    /// not entries.
    QStringList entries() const;

    /// The entry's bytes, at most the first 4 MiB, with leading and trailing whitespace removed.
    QByteArray readBinary(const QString &entry) const;
    QString readString(const QString &entry) const;
    /// Empty when the entry is not a JSON object.
    QJsonObject readObject(const QString &entry) const;
    /// Empty when the entry is not a JSON array.
    QJsonArray readArray(const QString &entry) const;
    AccessToken readToken(const QString &entry) const;
    /// Reads unencrypted PEM; the key's own isValid() tells whether it could be read.
    vn::crypto::PrivateKey readPrivateKey(const QString &entry) const;

    /// Each write returns true only when the new content has been committed.
    bool write(const QString &entry, const QByteArray &data);
    bool write(const QString &entry, const QString &text);
    /// Written in Qt's indented JSON form.
    bool write(const QString &entry, const QJsonObject &object);
    bool write(const QString &entry, const QJsonArray &array);
    bool write(const QString &entry, const AccessToken &token);
    /// Written as unencrypted PEM.
    bool write(const QString &entry, const vn::crypto::PrivateKey &key);

    /// False when the entry did not exist or could not be removed.
    bool deleteEntry(const QString &entry);

private:
    friend class AccountStore;

    explicit Profile(const QString &name);

    void initialize();
    QString entryPath(const QString &entry) const;

    QString m_name;
    QDir m_directory;
};

} // namespace vn::account
