#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "zarvo/platform/Observation.h"

namespace zarvo {

// The handlers registered for one observable value. add() returns the Observation that keeps
// a handler registered; notify() calls every handler registered when it reaches it, so a
// handler removed by an earlier one in the same pass is skipped. Tokens may outlive the list.
template <typename... Args>
class ObserverList {
public:
    using Handler = std::function<void(const Args&...)>;

    ObserverList() : state_(std::make_shared<State>()) {}
    ObserverList(const ObserverList&) = delete;
    ObserverList& operator=(const ObserverList&) = delete;

    Observation add(Handler handler) {
        std::uint64_t id = 0;
        {
            std::lock_guard lock(state_->mutex);
            id = ++state_->lastId;
            state_->handlers.emplace(id, std::make_shared<Handler>(std::move(handler)));
        }
        return Observation([weakState = std::weak_ptr<State>(state_), id] {
            if (auto state = weakState.lock()) {
                std::lock_guard lock(state->mutex);
                state->handlers.erase(id);
            }
        });
    }

    void notify(const Args&... args) const {
        std::vector<std::pair<std::uint64_t, std::shared_ptr<Handler>>> snapshot;
        {
            std::lock_guard lock(state_->mutex);
            snapshot.assign(state_->handlers.begin(), state_->handlers.end());
        }
        for (const auto& [id, handler] : snapshot) {
            bool registered = false;
            {
                std::lock_guard lock(state_->mutex);
                registered = state_->handlers.count(id) != 0;
            }
            if (registered) {
                (*handler)(args...);
            }
        }
    }

    bool empty() const {
        std::lock_guard lock(state_->mutex);
        return state_->handlers.empty();
    }

private:
    struct State {
        std::mutex mutex;
        std::uint64_t lastId = 0;
        std::map<std::uint64_t, std::shared_ptr<Handler>> handlers;
    };
    std::shared_ptr<State> state_;
};

}  // namespace zarvo
