#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QAbstractListModel>
#include <QHash>
#include <QString>

#include <memory>

namespace vn::account {

class LoginListModelPrivate;

/// The account's logins at the service, one row each, for a list view.
///
/// Roles: "sessionId" (the login's id), "activeSince" (a date-time), "hostInfo" (the machine that
/// logged in), "currentSession" (true for the login of this very client) and "deletePending" (an
/// end of the login is under way).
///
/// The model asks the service for the list when it is made and then once a minute, each time only
/// while the account is connected: after a sign-in, the list appears at the next minute's poll, or
/// at once in a model made after it. The rows keep the service's order. deleteLogin() ends any
/// login but this client's own; a refused end is reported by deleteFailed().
class VANTROACCOUNT_EXPORT LoginListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Roles {
        SessionIdRole = Qt::UserRole + 1,
        ActiveSinceRole,
        HostInfoRole,
        CurrentSessionRole,
        DeletePendingRole,
    };

    LoginListModel();
    ~LoginListModel() override;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    /// Ends the login @p loginId at the service. Nothing happens for an id that is not listed, for
    /// this client's own login (sign out instead) or while an end of it is already under way. The
    /// row goes once the service has confirmed.
    Q_INVOKABLE void deleteLogin(const QString &loginId);

Q_SIGNALS:
    /// The service did not end the login @p loginId; its row stays.
    void deleteFailed(const QString &loginId);

protected:
    /// The minute's poll.
    void timerEvent(QTimerEvent *event) override;

private Q_SLOTS:
    void receiveLoginList();
    void handleDeleted(bool success);

private:
    Q_DISABLE_COPY(LoginListModel)
    friend class LoginListModelPrivate;
    std::unique_ptr<LoginListModelPrivate> const d;
};

} // namespace vn::account
