#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QObject>
#include <QString>

namespace vn {
class DeleteRequest;
}

namespace vn::account {

// One row of the login list: a login as the service lists it, and the request that ends it.
class LoginEntry : public QObject
{
    Q_OBJECT

public:
    // Owned by the model's rows rather than as a QObject child: a child costs two events, and
    // the list is rebuilt every minute.
    LoginEntry() = default;

    /// Sends the DELETE of this login, unless one is in flight.
    void startDelete();

    // Read from the service's record when first asked for: a view asks only for the rows it shows,
    // and the list is rebuilt every minute.
    QDateTime since() const;
    QString hostInfo() const;

    /// The login as the service lists it.
    QJsonObject record;
    QString id;
    bool deletePending = false;
    bool currentSession = false;
    vn::DeleteRequest *deleteRequest = nullptr;

private:
    mutable QDateTime m_since;
    mutable bool m_sinceRead = false;

Q_SIGNALS:
    /// Only a 200 answer ends a login. The model connects to it when it starts the delete: a
    /// connection for every row would cost more than the row whenever the list is rebuilt.
    void deleted(bool status);

public Q_SLOTS:
    void handleDeleteResponse();
};

} // namespace vn::account
