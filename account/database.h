#pragma once

#include <VantroAccount/resource.h>

#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <memory>

namespace vn::account {

class DatabasePrivate;

/// A database the account may use: its server, its name and its authoring options, from the
/// payload of a "vantro.resource.Database" record.
class VANTROACCOUNT_EXPORT Database : public Resource
{
    Q_OBJECT
    Q_PROPERTY(QUrl server READ server CONSTANT)
    Q_PROPERTY(QString name READ name CONSTANT)
    Q_PROPERTY(QVariantMap authoringOptions READ authoringOptions CONSTANT)

public:
    Database(const QJsonObject &record, AccountIdentity *chain, QObject *parent);
    ~Database() override;

    /// Invalid when the payload's "server" is not a URL.
    QUrl server() const;
    QString name() const;
    /// Free-form options; empty when the payload has none.
    QVariantMap authoringOptions() const;

private:
    Q_DISABLE_COPY(Database)
    Q_DECLARE_PRIVATE(Database)
};

} // namespace vn::account
