#pragma once

#include "identity.h"

#include <QList>

namespace vn::account {

/// The links of the chain that ends at @p leaf, from the leaf up to the root; empty for none.
inline QList<Identity *> chainLinks(Identity *leaf)
{
    QList<Identity *> links;
    for (Identity *link = leaf; link; link = link->parent()) {
        links.append(link);
    }
    return links;
}

} // namespace vn::account
