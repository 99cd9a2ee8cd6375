#pragma once

#include "account.h"
#include "loginlistmodel.h"

#include <VantroAccount/vantroaccount_export.h>

#include <QJsonArray>
#include <QList>
#include <QMap>
#include <QString>

namespace vn {
class GetRequest;
}

namespace vn::account {

class LoginEntry;

// Exported only in builds with the benchmarks, which rebuild the rows without a service; not installed.
class VANTROACCOUNT_AUTOTEST_EXPORT LoginListModelPrivate
{
public:
    explicit LoginListModelPrivate(LoginListModel *owner)
        : q(owner)
    {}
    ~LoginListModelPrivate();

    static LoginListModelPrivate *get(LoginListModel *model) { return model->d.get(); }

    void requestList();
    /// Replaces every row by the logins of @p logins, in their order; the old entries are deleted
    /// later.
    void rebuild(const QJsonArray &logins);
    /// The answer to the DELETE of @p entry: the row goes, or stays and deleteFailed() tells.
    void entryDeleted(LoginEntry *entry, bool success);
    int rowOf(LoginEntry *entry) const { return int(rows.indexOf(entry)); }

    LoginListModel *const q;
    Account account;
    vn::GetRequest *listRequest = nullptr;
    QMap<QString, LoginEntry *> byId;
    QList<LoginEntry *> rows;
};

} // namespace vn::account
