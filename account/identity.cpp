#include "identity.h"

namespace vn::account {

Identity::Identity(QObject *parent)
    : QObject(parent)
{}

Identity::~Identity() = default;

bool Identity::verifyChain() const
{
    for (const Identity *identity = this; identity; identity = identity->parent()) {
        if (!identity->isValid()) {
            return false;
        }
    }
    return true;
}

} // namespace vn::account
