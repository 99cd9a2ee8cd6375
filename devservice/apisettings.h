#pragma once

namespace vn::devservice {

/// How long what the account API hands out lives. One record for the API and the service that
/// embeds it; change it at any time, it applies to what is issued from then on.
struct ApiSettings
{
    static constexpr int DefaultTokenLifetime = 24 * 3600;
    static constexpr int DefaultServiceTokenLifetime = 3600;
    static constexpr int DefaultChallengeLifetime = 60000;

    /// Seconds until an access token expires (its "exp"); the login ends with it.
    int tokenLifetime = DefaultTokenLifetime;
    /// Seconds until a service token from "tokens/<uuid>" expires.
    int serviceTokenLifetime = DefaultServiceTokenLifetime;
    /// Milliseconds during which a challenge of a challenge-response login can be answered.
    int challengeLifetime = DefaultChallengeLifetime;
};

} // namespace vn::devservice
