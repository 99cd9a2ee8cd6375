#include "elementhub_p.h"

#include "consumer.h"
#include "permission.h"
#include "role.h"

#include <algorithm>

namespace vn::account {

namespace {

// Only touched on the main thread, like the account itself.
std::weak_ptr<ElementHub> s_hub;

} // namespace

std::shared_ptr<ElementHub> ElementHub::acquire()
{
    std::shared_ptr<ElementHub> hub = s_hub.lock();
    if (!hub) {
        hub = std::shared_ptr<ElementHub>(new ElementHub);
        s_hub = hub;
    }
    return hub;
}

ElementHub::ElementHub()
{
    connect(&m_account, &Account::consumerChanged, this, [this] {
        watchConsumer();
        update<Permission>(m_permissions, [](Permission *element) { element->updateConsumer(); });
        update<Role>(m_roles, [](Role *element) { element->updateConsumer(); });
    });
    watchConsumer();
}

ElementHub::~ElementHub() = default;

void ElementHub::watchConsumer()
{
    if (m_consumer) {
        disconnect(m_consumer, nullptr, this, nullptr);
    }
    m_consumer = m_account.consumer();
    if (m_consumer) {
        connect(m_consumer, &Consumer::permissionsChanged, this, [this] {
            update<Permission>(m_permissions, [](Permission *element) { element->updatePresent(); });
        });
        connect(m_consumer, &Consumer::rolesChanged, this,
                [this] { update<Role>(m_roles, [](Role *element) { element->updatePresent(); }); });
    }
}

template<class Element>
void ElementHub::update(std::vector<Element *> &elements, void (*evaluate)(Element *))
{
    ++m_updating;
    // By index: elements added meanwhile land at the end and already answered when they were made.
    const size_t count = elements.size();
    for (size_t index = 0; index < count; ++index) {
        if (Element *element = elements[index]) {
            evaluate(element);
        }
    }
    if (--m_updating == 0) {
        m_permissions.erase(std::remove(m_permissions.begin(), m_permissions.end(), nullptr),
                            m_permissions.end());
        m_roles.erase(std::remove(m_roles.begin(), m_roles.end(), nullptr), m_roles.end());
    }
}

template<class Element>
void ElementHub::removeFrom(std::vector<Element *> &elements, Element *element)
{
    // The newest elements are the likeliest to go first (a view scrolled, a dialog closed).
    const auto found = std::find(elements.rbegin(), elements.rend(), element);
    if (found == elements.rend()) {
        return;
    }
    if (m_updating) {
        *found = nullptr;
    } else {
        elements.erase(std::next(found).base());
    }
}

void ElementHub::add(Permission *element)
{
    m_permissions.push_back(element);
}

void ElementHub::remove(Permission *element)
{
    removeFrom(m_permissions, element);
}

void ElementHub::add(Role *element)
{
    m_roles.push_back(element);
}

void ElementHub::remove(Role *element)
{
    removeFrom(m_roles, element);
}

} // namespace vn::account
