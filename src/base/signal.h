#pragma once

#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace quillo {

// A list of callbacks that models call when their state changes; views and other models
// subscribe. Used on one queue (the owner's); callbacks run in the order they connected and may
// disconnect themselves or others while being called.
template <class... Args>
class Signal {
public:
    using Slot = std::function<void(Args...)>;
    using Connection = int;

    Connection connect(Slot slot) {
        Connection id = m_next++;
        m_slots.emplace(id, std::move(slot));
        return id;
    }
    void disconnect(Connection id) { m_slots.erase(id); }

    void operator()(Args... args) const {
        std::vector<Connection> ids;
        ids.reserve(m_slots.size());
        for (const auto& [id, slot] : m_slots) {
            ids.push_back(id);
        }
        for (Connection id : ids) {
            auto it = m_slots.find(id);
            if (it != m_slots.end()) {
                Slot slot = it->second;  // a copy: the slot may disconnect itself
                slot(args...);
            }
        }
    }

private:
    std::map<Connection, Slot> m_slots;
    Connection m_next = 1;
};

}  // namespace quillo
