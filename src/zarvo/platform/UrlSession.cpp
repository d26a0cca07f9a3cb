#include "zarvo/platform/UrlSession.h"

#include <atomic>
#include <mutex>
#include <vector>

#include "zarvo/platform/CurlNetworkThread.h"
#include "zarvo/platform/CurlTransfer.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlStreamBuffer.h"

namespace zarvo {
namespace {

// A data task: made suspended, started by resume(). Its outcome is decided once (by the
// transfer, by cancel() or by a failure before the start) and then delivered on the
// delegate queue. While it runs, the transfer's finish callback holds the task, so a task
// nobody else keeps still completes.
class SessionDataTask : public UrlSessionDataTask,
                        public std::enable_shared_from_this<SessionDataTask> {
public:
    SessionDataTask(std::size_t identifier, UrlRequest request, Completion completion,
                    UrlSessionConfiguration configuration, std::string connectionGroup,
                    std::shared_ptr<DispatchQueue> delegateQueue,
                    std::shared_ptr<CurlNetworkThread> network, bool sessionInvalidated)
        : identifier_(identifier),
          request_(std::move(request)),
          configuration_(std::move(configuration)),
          connectionGroup_(std::move(connectionGroup)),
          delegateQueue_(std::move(delegateQueue)),
          network_(std::move(network)),
          completion_(std::move(completion)),
          failsAsCancelled_(sessionInvalidated) {}

    void resume() override {
        std::unique_lock lock(mutex_);
        if (state_ != State::suspended || started_) {
            return;
        }
        started_ = true;
        if (failsAsCancelled_) {
            lock.unlock();
            cancel();
            return;
        }
        auto made = CurlTransfer::make(request_, configuration_, connectionGroup_,
                                       [self = shared_from_this()](CurlTransfer::Outcome outcome) {
                                           self->transferFinished(std::move(outcome));
                                       });
        if (auto* error = std::get_if<Error>(&made)) {
            decided_ = true;
            state_ = State::completed;
            lock.unlock();
            post({std::nullopt, std::nullopt, std::move(*error)});
            return;
        }
        transfer_ = std::get<std::shared_ptr<CurlTransfer>>(std::move(made));
        state_ = State::running;
        auto transfer = transfer_;
        lock.unlock();
        network_->start(std::move(transfer));
    }

    void cancel() override {
        std::shared_ptr<CurlTransfer> transfer;
        {
            std::lock_guard lock(mutex_);
            if (decided_) {
                return;
            }
            decided_ = true;
            state_ = State::canceling;
            transfer = std::move(transfer_);
        }
        if (transfer) {
            network_->cancel(std::move(transfer));
        }
        post({std::nullopt, std::nullopt,
              makeUrlError(UrlError::cancelled, request_.url.absoluteString())});
    }

    State state() const override {
        std::lock_guard lock(mutex_);
        return state_;
    }
    std::size_t taskIdentifier() const override { return identifier_; }
    const UrlRequest& originalRequest() const override { return request_; }
    std::optional<std::string> taskDescription() const override {
        std::lock_guard lock(mutex_);
        return description_;
    }
    void setTaskDescription(std::optional<std::string> description) override {
        std::lock_guard lock(mutex_);
        description_ = std::move(description);
    }

    // Still to be resumed or running: what invalidateAndCancel stops.
    bool isOutstanding() const {
        std::lock_guard lock(mutex_);
        return !decided_;
    }

private:
    void transferFinished(CurlTransfer::Outcome outcome) {
        {
            std::lock_guard lock(mutex_);
            if (decided_) {
                return;
            }
            decided_ = true;
            state_ = State::completed;
            transfer_.reset();
        }
        post(std::move(outcome));
    }

    void post(CurlTransfer::Outcome outcome) {
        delegateQueue_->async([self = shared_from_this(), outcome = std::move(outcome)]() mutable {
            self->deliver(std::move(outcome));
        });
    }

    void deliver(CurlTransfer::Outcome outcome) {
        Completion completion;
        {
            std::lock_guard lock(mutex_);
            state_ = State::completed;
            completion = std::move(completion_);
            completion_ = nullptr;
        }
        if (completion) {
            completion(std::move(outcome.data), std::move(outcome.response),
                       std::move(outcome.error));
        }
    }

    const std::size_t identifier_;
    const UrlRequest request_;
    const UrlSessionConfiguration configuration_;
    const std::string connectionGroup_;
    const std::shared_ptr<DispatchQueue> delegateQueue_;
    const std::shared_ptr<CurlNetworkThread> network_;

    mutable std::mutex mutex_;
    Completion completion_;
    std::shared_ptr<CurlTransfer> transfer_;
    std::optional<std::string> description_;
    State state_ = State::suspended;
    bool started_ = false;
    bool decided_ = false;
    const bool failsAsCancelled_;
};

// A stream task: made suspended, started by resume(). Readers block on the stream buffer. The
// task holds the transfer so that a reader that drains a paused stream can take it up again,
// and nothing on the network thread holds the task: dropping it ends the transfer.
class SessionStreamTask : public UrlSessionStreamTask {
public:
    SessionStreamTask(UrlRequest request, std::size_t bufferLimit,
                      UrlSessionConfiguration configuration, std::string connectionGroup,
                      std::shared_ptr<CurlNetworkThread> network, bool sessionInvalidated)
        : request_(std::move(request)),
          configuration_(std::move(configuration)),
          connectionGroup_(std::move(connectionGroup)),
          network_(std::move(network)),
          stream_(std::make_shared<UrlStreamBuffer>(bufferLimit)),
          failsAsCancelled_(sessionInvalidated) {}

    ~SessionStreamTask() override { stop(); }

    void resume() override {
        std::unique_lock lock(mutex_);
        if (started_ || stopped_) {
            return;
        }
        started_ = true;
        if (failsAsCancelled_) {
            lock.unlock();
            stop();
            return;
        }
        auto made = CurlTransfer::makeStreamed(request_, configuration_, connectionGroup_, stream_);
        if (auto* error = std::get_if<Error>(&made)) {
            lock.unlock();
            stream_->finish(std::move(*error));
            return;
        }
        transfer_ = std::get<std::shared_ptr<CurlTransfer>>(std::move(made));
        // Posted under the lock, so that a cancel() racing with this start follows it.
        network_->start(transfer_);
    }

    void cancel() override { stop(); }

    std::variant<HttpUrlResponse, Error> waitForResponse() override {
        return stream_->waitForResponse();
    }

    std::variant<Data, Error> read() override {
        bool resumeTransfer = false;
        auto piece = stream_->read(resumeTransfer);
        if (resumeTransfer) {
            std::lock_guard lock(mutex_);
            if (transfer_) {
                network_->resumeReceiving(transfer_);
            }
        }
        return piece;
    }

    const UrlRequest& originalRequest() const override { return request_; }
    std::size_t bytesReceived() const override { return stream_->bytesReceived(); }

    // Not yet cancelled: what invalidateAndCancel stops.
    bool isOutstanding() const {
        std::lock_guard lock(mutex_);
        return !stopped_;
    }

private:
    void stop() {
        {
            std::lock_guard lock(mutex_);
            if (stopped_) {
                return;
            }
            stopped_ = true;
            if (transfer_) {
                network_->cancel(std::move(transfer_));
            }
        }
        stream_->cancel(makeUrlError(UrlError::cancelled, request_.url.absoluteString()));
    }

    const UrlRequest request_;
    const UrlSessionConfiguration configuration_;
    const std::string connectionGroup_;
    const std::shared_ptr<CurlNetworkThread> network_;
    const std::shared_ptr<UrlStreamBuffer> stream_;

    mutable std::mutex mutex_;
    std::shared_ptr<CurlTransfer> transfer_;
    bool started_ = false;
    bool stopped_ = false;
    const bool failsAsCancelled_;
};

// Drops ended tasks from a session's list; amortised by letting the list double first.
template <typename Task>
void forgetFinishedTasks(std::vector<std::weak_ptr<Task>>& tasks, std::size_t& pruneAt) {
    if (tasks.size() < pruneAt) {
        return;
    }
    std::erase_if(tasks, [](const std::weak_ptr<Task>& weakTask) {
        auto task = weakTask.lock();
        return !task || !task->isOutstanding();
    });
    pruneAt = std::max<std::size_t>(64, tasks.size() * 2);
}

std::string nextConnectionGroup() {
    static std::atomic<unsigned long> counter{0};
    return "session-" + std::to_string(++counter);
}

class CurlUrlSession : public UrlSession {
public:
    CurlUrlSession(UrlSessionConfiguration configuration,
                   std::shared_ptr<DispatchQueue> delegateQueue, bool isShared)
        : configuration_(std::move(configuration)),
          delegateQueue_(std::move(delegateQueue)),
          network_(CurlNetworkThread::shared()),
          connectionGroup_(nextConnectionGroup()),
          isShared_(isShared) {}

    const UrlSessionConfiguration& configuration() const override { return configuration_; }
    std::shared_ptr<DispatchQueue> delegateQueue() const override { return delegateQueue_; }

    std::shared_ptr<UrlSessionDataTask> dataTask(
        UrlRequest request, UrlSessionDataTask::Completion completion) override {
        std::lock_guard lock(mutex_);
        auto task = std::make_shared<SessionDataTask>(
            ++lastIdentifier_, std::move(request), std::move(completion), configuration_,
            connectionGroup_, delegateQueue_, network_, invalidated_);
        if (!invalidated_) {
            forgetFinishedTasks(tasks_, pruneAt_);
            tasks_.push_back(task);
        }
        return task;
    }

    std::shared_ptr<UrlSessionStreamTask> streamTask(UrlRequest request,
                                                     std::size_t bufferLimit) override {
        std::lock_guard lock(mutex_);
        auto task =
            std::make_shared<SessionStreamTask>(std::move(request), bufferLimit, configuration_,
                                                connectionGroup_, network_, invalidated_);
        if (!invalidated_) {
            forgetFinishedTasks(streamTasks_, pruneStreamsAt_);
            streamTasks_.push_back(task);
        }
        return task;
    }

    // The process-wide session serves everyone, so nobody can invalidate it.
    void invalidateAndCancel() override {
        if (isShared_) {
            return;
        }
        std::vector<std::shared_ptr<SessionDataTask>> outstanding;
        std::vector<std::shared_ptr<SessionStreamTask>> outstandingStreams;
        {
            std::lock_guard lock(mutex_);
            invalidated_ = true;
            for (const auto& weakTask : tasks_) {
                if (auto task = weakTask.lock()) {
                    outstanding.push_back(std::move(task));
                }
            }
            for (const auto& weakTask : streamTasks_) {
                if (auto task = weakTask.lock()) {
                    outstandingStreams.push_back(std::move(task));
                }
            }
            tasks_.clear();
            streamTasks_.clear();
        }
        for (const auto& task : outstanding) {
            task->cancel();
        }
        for (const auto& task : outstandingStreams) {
            task->cancel();
        }
    }

    void finishTasksAndInvalidate() override {
        if (isShared_) {
            return;
        }
        std::lock_guard lock(mutex_);
        invalidated_ = true;
        tasks_.clear();
        streamTasks_.clear();
    }

private:
    const UrlSessionConfiguration configuration_;
    const std::shared_ptr<DispatchQueue> delegateQueue_;
    const std::shared_ptr<CurlNetworkThread> network_;
    const std::string connectionGroup_;
    const bool isShared_;

    std::mutex mutex_;
    std::vector<std::weak_ptr<SessionDataTask>> tasks_;
    std::size_t pruneAt_ = 64;
    std::vector<std::weak_ptr<SessionStreamTask>> streamTasks_;
    std::size_t pruneStreamsAt_ = 64;
    std::size_t lastIdentifier_ = 0;
    bool invalidated_ = false;
};

}  // namespace

std::shared_ptr<UrlSession> UrlSession::shared() {
    static const std::shared_ptr<UrlSession> session =
        std::make_shared<CurlUrlSession>(UrlSessionConfiguration::defaultConfiguration(),
                                         DispatchQueue::serial("zarvo.UrlSession.shared"), true);
    return session;
}

std::shared_ptr<UrlSession> UrlSession::make(UrlSessionConfiguration configuration,
                                             std::shared_ptr<DispatchQueue> delegateQueue) {
    if (!delegateQueue) {
        delegateQueue = DispatchQueue::serial("zarvo.UrlSession.delegate");
    }
    return std::make_shared<CurlUrlSession>(std::move(configuration), std::move(delegateQueue),
                                            false);
}

}  // namespace zarvo
