#include "profile.h"

#include "accesstoken.h"
#include "logging_p.h"

#include <Vantro/locations.h>
#include <VantroCrypto/privatekey.h>
#include <VantroUtil/fileutils.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace vn::account {

namespace {

// Anything larger is not an entry this library wrote; read its beginning rather than all of it.
constexpr qint64 MaximumEntrySize = 4 * 1024 * 1024;

// The profile holds the access token and the client's private key: only its owner may enter the
// folder or read an entry, whatever the process's umask says.
constexpr mode_t FolderMode = S_IRWXU;
constexpr mode_t EntryMode = S_IRUSR | S_IWUSR;

// A write goes to a pending file ".pending.<writer's pid>.<random>" in the folder and is renamed onto
// its entry once whole. Hidden, it is never an entry; named after its writer, it tells the leftover
// of a writer killed in mid-write apart from a write still in progress in this or another process.
const QString PendingPrefix = QStringLiteral(".pending.");

bool writeAll(int descriptor, const QByteArray &data)
{
    const char *next = data.constData();
    qint64 left = data.size();
    while (left > 0) {
        const ssize_t written = ::write(descriptor, next, size_t(left));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        next += written;
        left -= written;
    }
    return true;
}

void makePrivateFolder(const QString &path)
{
    const QFileInfo info(path);
    QDir().mkpath(info.absolutePath());
    const QByteArray encoded = QFile::encodeName(info.absoluteFilePath());
    // Created with its final mode rather than made with the umask's and narrowed afterwards, so the
    // folder is never open to others. chmod then restores owner bits that a umask took away, and
    // narrows a folder that an earlier run left with a looser mode: while the folder is private, no
    // one else can reach an entry's pending file while it is being written.
    if (::mkdir(encoded.constData(), FolderMode) != 0) {
        struct stat existing;
        if (errno != EEXIST || ::stat(encoded.constData(), &existing) != 0 || !S_ISDIR(existing.st_mode)) {
            return;
        }
    }
    ::chmod(encoded.constData(), FolderMode);
}

} // namespace

const QString Profile::DefaultProfileName = QStringLiteral("default");

Profile::Profile(const QString &name)
    : m_name(name)
    , m_directory(QString())
{
    initialize();
}

Profile::Profile(const Profile &other)
    : m_name(other.m_name)
    , m_directory(QString())
{
    initialize();
}

Profile::Profile(Profile &&other)
    : m_name(std::move(other.m_name))
    , m_directory(QString())
{
    other.m_name = QString();
    initialize();
}

// Only the name follows an assignment; the folder stays the one this object was built for.
Profile &Profile::operator=(const Profile &other)
{
    m_name = other.m_name;
    return *this;
}

Profile &Profile::operator=(Profile &&other)
{
    m_name = std::move(other.m_name);
    return *this;
}

Profile::~Profile() = default;

void Profile::initialize()
{
    if (m_name.isEmpty()) {
        m_name = DefaultProfileName;
    }
    const QDir base = vn::Locations::profileLocation();
    if (lcAccount().isInfoEnabled()) {
        qCInfo(lcAccount, "Using profile %s", m_name.toLocal8Bit().constData());
    }
    m_directory.setPath(base.absoluteFilePath(m_name));
    // A folder that cannot be made is not reported here: every later write fails instead.
    makePrivateFolder(m_directory.absolutePath());
    // Opening is where a run finds what a killed one left: pending files whose writer is gone.
    const QStringList pending =
        m_directory.entryList({PendingPrefix + QLatin1Char('*')}, QDir::Files | QDir::Hidden);
    for (const QString &name : pending) {
        const pid_t writer = pid_t(name.section(QLatin1Char('.'), 2, 2).toInt());
        if (writer > 0 && writer != ::getpid() && ::kill(writer, 0) != 0 && errno == ESRCH) {
            m_directory.remove(name);
        }
    }
}

QString Profile::entryPath(const QString &entry) const
{
    return m_directory.absoluteFilePath(entry);
}

QString Profile::name() const
{
    return m_name;
}

bool Profile::hasEntry(const QString &entry) const
{
    return QFile::exists(entryPath(entry));
}

QStringList Profile::entries() const
{
    QStringList names = m_directory.entryList(QDir::Files, QDir::NoSort);
    std::sort(names.begin(), names.end());
    return names;
}

QByteArray Profile::readBinary(const QString &entry) const
{
    QFile file(entryPath(entry));
    if (!file.exists() || !file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return QByteArray();
    }
    // Sized from the open file, so the buffer is exactly as large as the entry.
    const qint64 length = file.isSequential() ? MaximumEntrySize : qMin(file.size(), MaximumEntrySize);
    QByteArray data = file.read(length);
    return std::move(data).trimmed();
}

QString Profile::readString(const QString &entry) const
{
    return QString::fromUtf8(readBinary(entry));
}

QJsonObject Profile::readObject(const QString &entry) const
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(readBinary(entry), &error);
    return error.error == QJsonParseError::NoError ? document.object() : QJsonObject();
}

QJsonArray Profile::readArray(const QString &entry) const
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(readBinary(entry), &error);
    return error.error == QJsonParseError::NoError ? document.array() : QJsonArray();
}

AccessToken Profile::readToken(const QString &entry) const
{
    return AccessToken(readString(entry));
}

vn::crypto::PrivateKey Profile::readPrivateKey(const QString &entry) const
{
    return vn::crypto::PrivateKey(readBinary(entry), QString());
}

bool Profile::write(const QString &entry, const QByteArray &data)
{
    const QString path = entryPath(entry);
    QByteArray pending = QFile::encodeName(
        m_directory.absoluteFilePath(PendingPrefix + QString::number(::getpid()) + ".XXXXXX"));
    const int descriptor = ::mkostemp(pending.data(), O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    // Made 0600 less the umask; the owner's bits come back before the first byte is written, so the
    // entry has never been readable by anyone else.
    bool written = ::fchmod(descriptor, EntryMode) == 0 && writeAll(descriptor, data);
    written = ::close(descriptor) == 0 && written;
    if (!written || ::rename(pending.constData(), QFile::encodeName(path).constData()) != 0) {
        ::unlink(pending.constData());
        return false;
    }
    vn::util::FileUtils::syncFile(path);
    return true;
}

bool Profile::write(const QString &entry, const QString &text)
{
    return write(entry, text.toUtf8());
}

bool Profile::write(const QString &entry, const QJsonObject &object)
{
    return write(entry, QJsonDocument(object).toJson());
}

bool Profile::write(const QString &entry, const QJsonArray &array)
{
    return write(entry, QJsonDocument(array).toJson());
}

bool Profile::write(const QString &entry, const AccessToken &token)
{
    return write(entry, QByteArray(token));
}

bool Profile::write(const QString &entry, const vn::crypto::PrivateKey &key)
{
    return write(entry, key.toPEM());
}

bool Profile::deleteEntry(const QString &entry)
{
    return QFile::remove(entryPath(entry));
}

} // namespace vn::account
