#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QObject>

#include <memory>

namespace vn::account {

class AccountIdentity;
class AccountInstancePrivate;

/// The one signed-in account of the process, shared by every Account object. It owns the account's
/// data objects (identity chain, session, consumer, resources) as their QObject parent.
///
/// Internal to the library: exported only so that the tests can reach it; the header is not
/// installed.
class VANTROACCOUNT_EXPORT AccountInstance : public QObject
{
    Q_OBJECT

public:
    /// Registers the resource types that the account service hands out, so that Resource::create()
    /// builds them by type from here on.
    explicit AccountInstance(QObject *parent = nullptr);
    ~AccountInstance() override;

    /// The account's own identity: the leaf of its verified identity chain, or null when there is
    /// none. Resources are checked against this chain and ranked by it.
    AccountIdentity *identity() const;
    /// Makes @p identity the account's own. The instance keeps the pointer as given; the chain is
    /// owned by whoever made it (AccountIdentity::loadChain() makes the instance its owner).
    void setIdentity(AccountIdentity *identity);

Q_SIGNALS:
    void identityChanged();

private:
    Q_DISABLE_COPY(AccountInstance)
    std::unique_ptr<AccountInstancePrivate> const d;
};

} // namespace vn::account
