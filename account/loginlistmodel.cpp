#include "loginlistmodel.h"
#include "loginlistmodel_p.h"

#include "account.h"
#include "logging_p.h"
#include "loginentry_p.h"
#include "session.h"
#include "timescale_p.h"

#include <Vantro/getrequest.h>

#include <QJsonArray>
#include <QJsonValue>

namespace vn::account {

namespace {

constexpr int PollInterval = 60000;

} // namespace

LoginListModelPrivate::~LoginListModelPrivate()
{
    qDeleteAll(rows);
}

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
        auto *entry = new LoginEntry;
        entry->record = value.toObject();
        entry->id = entry->record.value(QLatin1String("id")).toString();
        entry->currentSession = session && session->identifier() == entry->id;
        newRows.append(entry);
        newById.insert(entry->id, entry);
    }
    q->beginResetModel();
    rows.swap(newRows);
    byId.swap(newById);
    q->endResetModel();
    // Nothing of an old entry is running here (the list request has finished, no delete answer is
    // being handled), so the old entries go at once rather than one posted event each.
    qDeleteAll(newRows);
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
        return entry->since();
    case HostInfoRole:
        return entry->hostInfo();
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
    connect(entry, &LoginEntry::deleted, this, &LoginListModel::handleDeleted, Qt::UniqueConnection);
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
    if (auto *entry = qobject_cast<LoginEntry *>(sender())) {
        d->entryDeleted(entry, success);
    }
}

void LoginListModelPrivate::entryDeleted(LoginEntry *entry, bool success)
{
    const int row = rowOf(entry);
    if (!success) {
        Q_EMIT q->dataChanged(q->index(row), q->index(row), {LoginListModel::DeletePendingRole});
        Q_EMIT q->deleteFailed(entry->id);
        return;
    }
    // An entry that a refresh has already replaced has no row left to remove.
    if (row >= 0) {
        q->beginRemoveRows(QModelIndex(), row, row);
        rows.removeAt(row);
    }
    byId.remove(entry->id);
    if (row >= 0) {
        q->endRemoveRows();
    }
    entry->deleteLater();
}

} // namespace vn::account
