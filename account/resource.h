#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QByteArray>
#include <QHash>
#include <QJsonValue>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class QJsonObject;

namespace vn::account {

class AccountIdentity;
class ResourcePrivate;

/// A signed record that the account service hands to the account: a database, credentials for
/// one, a service endpoint.
///
/// The record ("id", "type", "owner", "issuer", "signature", "payload") is trusted only when its
/// signature verifies against the key of its issuer, an identity of the account's identity chain.
/// Resources are built by type through create(); a type nobody registered stays a plain Resource.
/// Immutable after construction: validity and content are those of the record and of the chain as
/// it stood then.
class VANTROACCOUNT_EXPORT Resource : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString uuid READ uuid CONSTANT)
    Q_PROPERTY(QString type READ type CONSTANT)
    Q_PROPERTY(QString owner READ owner CONSTANT)
    Q_PROPERTY(QByteArray signature READ signature CONSTANT)
    Q_PROPERTY(QJsonValue payload READ payload CONSTANT)
    Q_PROPERTY(bool valid READ isValid CONSTANT)

public:
    /// Builds the resource object for one record, checked against the identity chain that ends at
    /// @p chain (the account's own identity; null for none), as a QObject child of @p parent.
    using CreationFunction =
        std::function<Resource *(const QJsonObject &record, AccountIdentity *chain, QObject *parent)>;

    /// The object of the class registered for the record's "type", or a plain Resource when none is;
    /// never null.
    static Resource *create(const QJsonObject &record, AccountIdentity *chain, QObject *parent);

    /// Registers @p factory for the type name @p type (compared exactly, case-sensitively). The first
    /// registration of a name wins; later ones leave the registry unchanged.
    static void registerType(const QByteArray &type, const CreationFunction &factory);
    /// Registers the class @p T, built as `new T(record, chain, parent)`, for @p type.
    template<class T>
    static void registerType(const QByteArray &type)
    {
        registerType(type,
                     [](const QJsonObject &record, AccountIdentity *chain, QObject *parent) -> Resource * {
                         return new T(record, chain, parent);
                     });
    }

    ~Resource() override;

    QString uuid() const;
    QString type() const;
    QString owner() const;
    QByteArray signature() const;
    /// The type-specific content as it stands in the record (undefined when absent).
    QJsonValue payload() const;

    /// Whether the record's signature verified against its issuer's key.
    bool isValid() const;

    /// How close the owner stands to the account's own identity: 65535 for the account's own, one
    /// less for each step up the chain, 0 when the owner is not in the chain or there is none.
    int priority() const;

protected:
    /// Keeps a copy of @p record, checks its signature against the key of its issuer in @p chain
    /// and ranks its owner there.
    Resource(const QJsonObject &record, AccountIdentity *chain, QObject *parent);
    /// For subclasses, whose private data derives from the base's.
    Resource(ResourcePrivate &dd, const QJsonObject &record, AccountIdentity *chain, QObject *parent);

    std::unique_ptr<ResourcePrivate> const d_ptr;

private:
    Q_DISABLE_COPY(Resource)

    /// Type name (Latin-1) to factory. Filled by the account instance, read by create(); only ever
    /// added to, on the account instance's thread.
    static QHash<QByteArray, CreationFunction> m_creationFunc;

    Q_DECLARE_PRIVATE(Resource)
};

} // namespace vn::account
