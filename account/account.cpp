#include "account.h"

#include "profile.h"

#include <QCoreApplication>
#include <QVariant>

namespace vn::account {

Profile &Account::profile()
{
    // The first call may come from any thread: a function-local static is made exactly once.
    static Profile profile([] {
        const QCoreApplication *application = QCoreApplication::instance();
        return application ? application->property("profile").toString() : QString();
    }());
    return profile;
}

} // namespace vn::account
