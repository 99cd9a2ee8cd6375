#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QObject>

namespace vn::account {

class Profile;

/// The signed-in account as the application and its QML user interface see it.
class VANTROACCOUNT_EXPORT Account : public QObject
{
    Q_OBJECT

public:
    enum Status {
        Unknown = 0,
        Disconnected = 1,
        Disconnecting = 2,
        Connecting = 3,
        Connected = 4,
    };
    Q_ENUM(Status)

    enum Error {
        NoError = 0,
        AlreadyLoggedIn = 1,
        AlreadyBusy = 2,
        InvalidLoginData = 3,
        AuthenticationFailed = 4,
        ServiceFailure = 5,
        ServiceUnavailable = 6,
        NotLoggedIn = 7,
    };
    Q_ENUM(Error)

    /// The process's one profile, named by the application object's dynamic property "profile"
    /// ("default" when it is unset or empty). Made on the first call, from any thread.
    static Profile &profile();
};

} // namespace vn::account
