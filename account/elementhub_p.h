#pragma once

#include "accountinstance.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <vector>

namespace vn::account {

class Consumer;

// What every Permission and Role element watches, watched once for all of them: the account's
// consumer and its permissions and roles. An interface may hold thousands of elements; one
// connection each would make every change of the consumer cost a signal delivery per element.
// The hub lives while some element does, and holds the account instance alive meanwhile. It knows
// its elements only by what it calls on them.
class ElementHub : public QObject
{
    Q_OBJECT

public:
    /// What an element answers for: the consumer's permissions, or its roles.
    enum class Watch { Permissions, Roles };
    /// An element and its two answers: to another consumer, and to a change of the watched part
    /// of the same consumer.
    struct Element
    {
        QObject *object;
        void (*consumerReplaced)(QObject *);
        void (*consumerChanged)(QObject *);
    };

    /// The process's hub, made when the first element needs it.
    static std::shared_ptr<ElementHub> acquire();
    ~ElementHub() override;

    Consumer *consumer() const { return m_consumer; }

    void add(Watch watch, const Element &element);
    void remove(Watch watch, QObject *object);

private:
    ElementHub();
    void watchConsumer();
    void update(std::vector<Element> &elements, bool replaced);
    std::vector<Element> &elements(Watch watch);

    std::shared_ptr<AccountInstance> const m_account;
    QPointer<Consumer> m_consumer;
    std::vector<Element> m_permissions;
    std::vector<Element> m_roles;
    // Elements may come and go while an update runs (a presentChanged() handler may create or
    // destroy some): those gone leave an empty slot until the outermost update has finished.
    int m_updating = 0;
};

} // namespace vn::account
