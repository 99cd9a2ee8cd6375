#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QObject>
#include <QStringList>

#include <memory>

namespace vn::account {

class RolePrivate;

/// Whether the signed-in user holds every one of a list of roles, as a live answer for the user
/// interface.
///
/// @code{.qml}
/// Role { id: author; require: ["author"] }
/// Button { text: qsTr("New article"); visible: author.present }
/// @endcode
///
/// Like Permission, it follows the account by itself and never talks to the network.
class VANTROACCOUNT_EXPORT Role : public QObject
{
    Q_OBJECT
    /// The role names asked for, compared case-sensitively; the user must hold all of them.
    Q_PROPERTY(QStringList require READ require WRITE setRequire NOTIFY requireChanged)
    /// True when the list is empty, or when the signed-in user holds every role in it; false while
    /// nobody is signed in.
    Q_PROPERTY(bool present READ present NOTIFY presentChanged)

public:
    /// Watches the process's account (made now if there is none yet, and kept alive while this
    /// element lives) and answers for its current consumer at once.
    explicit Role(QObject *parent = nullptr);
    ~Role() override;

    QStringList require() const;
    /// A list in another order counts as a change of @ref require, even when the answer stays.
    void setRequire(const QStringList &require);
    bool present() const;

Q_SIGNALS:
    void requireChanged();
    void presentChanged();

private Q_SLOTS:
    void updatePresent();
    void updateConsumer();

private:
    Q_DISABLE_COPY(Role)
    std::unique_ptr<RolePrivate> const d;
};

} // namespace vn::account
