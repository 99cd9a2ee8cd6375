#pragma once

#include <QDateTime>
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
    explicit LoginEntry(QObject *parent)
        : QObject(parent)
    {}

    /// Sends the DELETE of this login, unless one is in flight.
    void startDelete();

    QDateTime since;
    QString hostInfo;
    QString id;
    bool deletePending = false;
    bool currentSession = false;
    vn::DeleteRequest *deleteRequest = nullptr;

Q_SIGNALS:
    /// Only a 200 answer ends a login.
    void deleted(bool status);

public Q_SLOTS:
    void handleDeleteResponse();
};

} // namespace vn::account
