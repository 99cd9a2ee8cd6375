#pragma once

#include "account.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <vector>

namespace vn::account {

class Consumer;
class Permission;
class Role;

// What every Permission and Role element watches, watched once for all of them: the account's
// consumer and its permissions and roles. An interface may hold thousands of elements; one
// connection each would make every change of the consumer cost a signal delivery per element.
// The hub lives while some element does, and holds the account instance alive meanwhile.
class ElementHub : public QObject
{
    Q_OBJECT

public:
    /// The process's hub, made when the first element needs it.
    static std::shared_ptr<ElementHub> acquire();
    ~ElementHub() override;

    Consumer *consumer() const { return m_consumer; }

    void add(Permission *element);
    void remove(Permission *element);
    void add(Role *element);
    void remove(Role *element);

private:
    ElementHub();
    void watchConsumer();
    template<class Element>
    void update(std::vector<Element *> &elements, void (*evaluate)(Element *));
    template<class Element>
    void removeFrom(std::vector<Element *> &elements, Element *element);

    Account m_account;
    QPointer<Consumer> m_consumer;
    std::vector<Permission *> m_permissions;
    std::vector<Role *> m_roles;
    // Elements may come and go while an update runs (a presentChanged() handler may create or
    // destroy some): those gone leave a null slot until the outermost update has finished.
    int m_updating = 0;
};

} // namespace vn::account
