// The login list as LoginListModel reads it: the service's answer to "logins?format=all_fields"
// becomes the rows, and every role of every row is read as a view would read it. The input is the
// answer's body; the rows are rebuilt from it directly, as when a list request finishes, so that no
// request goes out.

#include "autotest_p.h"
#include "testprofile.h"

#include <VantroAccount/loginlistmodel.h>

#include <QJsonArray>
#include <QJsonDocument>

using vn::account::LoginListModel;
using vn::account::LoginListModelPrivate;

namespace {

// A model of a signed-out account with a profile of its own: it never asks the service itself.
struct Fixture
{
    Fixture() { model = std::make_unique<LoginListModel>(); }

    vn::fuzz::TestProfile profile;
    std::unique_ptr<LoginListModel> model;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    static Fixture fixture;
    LoginListModel &model = *fixture.model;
    // As the finished list request reads its body: an object or an array, and only an array has rows.
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    const QJsonArray logins = document.isArray() ? document.array() : QJsonArray();
    LoginListModelPrivate::get(&model)->rebuild(logins);

    // One row for every entry, whatever it holds, in the service's order.
    FUZZ_CHECK(model.rowCount() == logins.size());
    const QList<int> roles = model.roleNames().keys();
    for (int row = 0; row < model.rowCount(); ++row) {
        const QModelIndex index = model.index(row);
        for (const int role : roles) {
            model.data(index, role);
        }
        FUZZ_CHECK(model.data(index, LoginListModel::SessionIdRole).toString() ==
                   logins.at(row).toObject().value(QLatin1String("id")).toString());
        FUZZ_CHECK(!model.data(index, LoginListModel::CurrentSessionRole).toBool());
        FUZZ_CHECK(!model.data(index, LoginListModel::DeletePendingRole).toBool());
    }
    FUZZ_CHECK(!model.data(model.index(model.rowCount()), LoginListModel::SessionIdRole).isValid());
    return 0;
}
