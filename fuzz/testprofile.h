#pragma once

#include "fuzzsupport.h"

#include <VantroAccount/account.h>
#include <VantroAccount/profile.h>
#include <VantroCrypto/privatekey.h>

#include <QFile>
#include <QTemporaryDir>

namespace vn::fuzz {

/// A profile folder of the target's own, with the built-in configuration, that holds the corpus's
/// test-only key as the client key: an account made afterwards restores it rather than generating
/// one, which would take longer than replaying the whole corpus.
struct TestProfile
{
    TestProfile()
    {
        qputenv("VANTRO_PROFILE_LOCATION", folder.path().toLocal8Bit());
        qunsetenv("VANTRO_ACCOUNT_CONFIG");
        QFile key(QStringLiteral(VANTRO_FUZZ_KEY));
        FUZZ_CHECK(key.open(QIODevice::ReadOnly));
        FUZZ_CHECK(vn::account::Account::profile().write(QStringLiteral("clientKey"),
                                                         vn::crypto::PrivateKey(key.readAll(), QString())));
    }

    QTemporaryDir folder;
};

} // namespace vn::fuzz
