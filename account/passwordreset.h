#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QObject>
#include <QString>
#include <QUrl>

#include <memory>

namespace vn::account {

class PasswordResetPrivate;

/// Asks the account service to start a password reset for a user name, for a user who cannot
/// sign in.
///
/// It needs no signed-in account: the request goes to the service's fixed password-reset address
/// (url(), chosen when the library is built) through the network access manager of the QML engine
/// that made the element, so it must be made by a QML engine. The service answers 201 when it
/// knows the user name and has sent the reset mail, 404 when it does not know it.
///
/// @code{.qml}
/// PasswordReset {
///     id: reset
///     email: emailField.text
///     onFinished: message.text = status === 201 ? qsTr("Check your mail") : qsTr("Unknown user")
/// }
/// @endcode
class VANTROACCOUNT_EXPORT PasswordReset : public QObject
{
    Q_OBJECT
    /// True while a request is on its way.
    Q_PROPERTY(bool busy READ isBusy NOTIFY busyChanged)
    /// The user name (e-mail address) whose password is to be reset.
    Q_PROPERTY(QString email READ email WRITE setEmail NOTIFY emailChanged)

public:
    explicit PasswordReset(QObject *parent = nullptr);
    ~PasswordReset() override;

    bool isBusy() const;
    QString email() const;
    void setEmail(const QString &email);

    /// Where every reset request goes: an absolute URL on the account service's host, set when the
    /// library is built (the CMake cache variable VANTRO_ACCOUNT_PASSWORD_RESET_URL).
    static QUrl url();

public Q_SLOTS:
    /// Sends the request for @ref email, in the language of the default locale. Ignored while busy.
    void requestReset();

Q_SIGNALS:
    void busyChanged();
    void emailChanged();
    /// The HTTP status of the answer: 201 reset started, 404 unknown user name; 0 when the service
    /// could not be reached. Emitted before busy turns false.
    void finished(int status);

private:
    Q_DISABLE_COPY(PasswordReset)
    std::unique_ptr<PasswordResetPrivate> const d;
};

} // namespace vn::account
