#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QDateTime>
#include <QObject>
#include <QString>

#include <memory>

class QJsonObject;

namespace vn::account {

class SessionPrivate;

/// This login on this machine, as the account service describes it.
///
/// Immutable: a new session is a new Session object.
class VANTROACCOUNT_EXPORT Session : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString identifier READ identifier CONSTANT)
    Q_PROPERTY(QString hostInfo READ hostInfo CONSTANT)
    Q_PROPERTY(QDateTime since READ since CONSTANT)

public:
    /// Reads "id", "hostInfo" and "since" (ISO 8601) from @p session. Missing or malformed values
    /// give empty strings and a null date-time.
    Session(const QJsonObject &session, QObject *parent = nullptr);
    ~Session() override;

    QString identifier() const;
    QString hostInfo() const;
    QDateTime since() const;

private:
    Q_DISABLE_COPY(Session)
    std::unique_ptr<SessionPrivate> const d;
};

} // namespace vn::account
