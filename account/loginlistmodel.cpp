#include "loginlistmodel.h"

#include "account.h"
#include "logging_p.h"
#include "loginentry_p.h"
#include "session.h"
#include "timescale_p.h"

#include <Vantro/getrequest.h>

#include <QJsonArray>
#include <QJsonValue>
#include <QMap>

namespace vn::account {

namespace {

constexpr int PollInterval = 60000;

} // namespace

class LoginListModelPrivate
{
public:
    explicit LoginListModelPrivate(LoginListModel *owner)
        : q(owner)
    {}

    void requestList();
    void rebuild(const QJsonArray &logins);
    int rowOf(LoginEntry *entry) const { return int(rows.indexOf(entry)); }

    LoginListModel *const q;
    Account account;
    vn::GetRequest *listRequest = nullptr;
    QMap<QString, LoginEntry *> byId;
    QList<LoginEntry *> rows;
};

void LoginListModelPrivate::requestList()
{
    if (account.status() != Account::Connected || listRequest) {
        return;
    }
    listRequest = account.getRequest(QUrl(QStringLiteral("logins?format=all_fields"), QUrl::TolerantMode));
    listRequest->setSuppressErrors(true);
    QObject::connect(listRequest, &Request::finished, q, &LoginListModel::receiveLoginList);
}

void LoginListModelPrivate::rebuild(const QJsonArray &logins)
{
    const Session *session = account.session();
    QList<LoginEntry *> newRows;
    QMap<QString, LoginEntry *> newById;
    newRows.reserve(logins.size());
    for (const QJsonValue &value : logins) {
        const QJsonObject login = value.toObject();
        auto *entry = new LoginEntry(q);
        entry->id = login.value(QLatin1String("id")).toString();
        entry->since = QDateTime::fromString(login.value(QLatin1String("since")).toString(), Qt::ISODate);
        entry->hostInfo = login.value(QLatin1String("hostInfo")).toString();
        entry->currentSession = session && session->identifier() == entry->id;
        QObject::connect(entry, &LoginEntry::deleted, q, &LoginListModel::handleDeleted);
        newRows.append(entry);
        newById.insert(entry->id, entry);
    }
    q->beginResetModel();
    rows.swap(newRows);
    byId.swap(newById);
    q->endResetModel();
    for (LoginEntry *entry : qAsConst(newRows)) {
        entry->deleteLater();
    }
}

LoginListModel::LoginListModel()
    : d(std::make_unique<LoginListModelPrivate>(this))
{
    d->requestList();
    startTimer(TimeScale::interval(PollInterval), Qt::CoarseTimer);
}

LoginListModel::~LoginListModel() = default;

int LoginListModel::rowCount(const QModelIndex &) const
{
    return int(d->rows.size());
}

QVariant LoginListModel::data(const QModelIndex &index, int role) const
{
    if (index.row() < 0 || index.row() >= d->rows.size()) {
        return QVariant();
    }
    const LoginEntry *entry = d->rows.at(index.row());
    switch (role) {
    case SessionIdRole:
        return entry->id;
    case ActiveSinceRole:
        return entry->since;
    case HostInfoRole:
        return entry->hostInfo;
    case CurrentSessionRole:
        return entry->currentSession;
    case DeletePendingRole:
        return entry->deletePending;
    default:
        return QVariant();
    }
}

QHash<int, QByteArray> LoginListModel::roleNames() const
{
    return {{SessionIdRole, QByteArrayLiteral("sessionId")},
            {ActiveSinceRole, QByteArrayLiteral("activeSince")},
            {HostInfoRole, QByteArrayLiteral("hostInfo")},
            {CurrentSessionRole, QByteArrayLiteral("currentSession")},
            {DeletePendingRole, QByteArrayLiteral("deletePending")}};
}

void LoginListModel::deleteLogin(const QString &loginId)
{
    LoginEntry *entry = d->byId.value(loginId);
    if (!entry) {
        return;
    }
    if (entry->currentSession) {
        qCWarning(lcLoginList) << "Cannot delete active session";
        return;
    }
    if (entry->deletePending) {
        qCWarning(lcLoginList) << "Delete of login" << loginId << "is already pending";
        return;
    }
    const int row = d->rowOf(entry);
    entry->startDelete();
    Q_EMIT dataChanged(index(row), index(row), {DeletePendingRole});
}

void LoginListModel::timerEvent(QTimerEvent *)
{
    d->requestList();
}

void LoginListModel::receiveLoginList()
{
    if (d->listRequest->isOk(200)) {
        d->rebuild(d->listRequest->response().toArray());
    }
    d->listRequest = nullptr;
}

void LoginListModel::handleDeleted(bool success)
{
    auto *entry = qobject_cast<LoginEntry *>(sender());
    if (!entry) {
        return;
    }
    const int row = d->rowOf(entry);
    if (!success) {
        Q_EMIT dataChanged(index(row), index(row), {DeletePendingRole});
        Q_EMIT deleteFailed(entry->id);
        return;
    }
    // An entry that a refresh has already replaced has no row left to remove.
    if (row >= 0) {
        beginRemoveRows(QModelIndex(), row, row);
        d->rows.removeAt(row);
    }
    d->byId.remove(entry->id);
    if (row >= 0) {
        endRemoveRows();
    }
    entry->deleteLater();
}

} // namespace vn::account
