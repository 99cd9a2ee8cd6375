#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QJsonObject>
#include <QUrl>

namespace vn::account {

/// Where the account service lives and which identity is the root of all trust.
///
/// Both come from a signed account configuration: the one built into the library, or the file that
/// the environment variable VANTRO_ACCOUNT_CONFIG names. It is loaded on first use and verified
/// against the configuration key built into the library; a configuration that is missing, unreadable
/// or not signed with that key ends the process. VANTRO_CACHE_ACCOUNT_CONFIG=0 makes every call read
/// and verify the file again.
class VANTROACCOUNT_EXPORT AccountConfiguration
{
public:
    AccountConfiguration() = delete;

    /// The account service's base URL, always ending in "/".
    static QUrl serviceUrl();
    /// The configuration's "rootIdentity" record ("uuid", "name", "publicKey").
    static QJsonObject rootIdentity();

    /// True once a configuration has been loaded and may be kept.
    static bool s_initialized;
    static QJsonObject s_rootIdentity;
    static QUrl s_serviceUrl;

private:
    static void loadConfiguration();
};

} // namespace vn::account
