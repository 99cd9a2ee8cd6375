#include "elementhub_p.h"

#include "consumer.h"

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
    : m_account(AccountInstance::shared())
{
    connect(m_account.get(), &AccountInstance::consumerChanged, this, [this] {
        watchConsumer();
        update(m_permissions, true);
        update(m_roles, true);
    });
    watchConsumer();
}

ElementHub::~ElementHub() = default;

void ElementHub::watchConsumer()
{
    if (m_consumer) {
        disconnect(m_consumer, nullptr, this, nullptr);
    }
    m_consumer = m_account->consumer();
    if (m_consumer) {
        connect(m_consumer, &Consumer::permissionsChanged, this, [this] { update(m_permissions, false); });
        connect(m_consumer, &Consumer::rolesChanged, this, [this] { update(m_roles, false); });
    }
}

void ElementHub::update(std::vector<Element> &elements, bool replaced)
{
    ++m_updating;
    // By index: elements added meanwhile land at the end and already answered when they were made.
    const size_t count = elements.size();
    for (size_t index = 0; index < count; ++index) {
        const Element element = elements[index];
        if (element.object) {
            (replaced ? element.consumerReplaced : element.consumerChanged)(element.object);
        }
    }
    if (--m_updating == 0) {
        for (std::vector<Element> *list : {&m_permissions, &m_roles}) {
            list->erase(std::remove_if(list->begin(), list->end(),
                                       [](const Element &element) { return !element.object; }),
                        list->end());
        }
    }
}

std::vector<ElementHub::Element> &ElementHub::elements(Watch watch)
{
    return watch == Watch::Permissions ? m_permissions : m_roles;
}

void ElementHub::add(Watch watch, const Element &element)
{
    elements(watch).push_back(element);
}

void ElementHub::remove(Watch watch, QObject *object)
{
    std::vector<Element> &list = elements(watch);
    // The newest elements are the likeliest to go first (a view scrolled, a dialog closed).
    const auto found = std::find_if(list.rbegin(), list.rend(),
                                    [object](const Element &element) { return element.object == object; });
    if (found == list.rend()) {
        return;
    }
    if (m_updating) {
        found->object = nullptr;
    } else {
        list.erase(std::next(found).base());
    }
}

} // namespace vn::account
