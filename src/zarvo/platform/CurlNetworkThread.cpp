#include "zarvo/platform/CurlNetworkThread.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <pthread.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Immortal.h"

namespace zarvo {
namespace {

constexpr long maximumCachedConnections = 64;
constexpr int longestWaitMilliseconds = 1000;

}  // namespace

std::shared_ptr<CurlNetworkThread> CurlNetworkThread::shared() {
    // Never released: a task that ends while the process exits may drop the last other
    // reference on this very thread, which must not destroy it under its own feet.
    static Immortal<std::shared_ptr<CurlNetworkThread>> instance(
        std::make_shared<CurlNetworkThread>());
    return instance.get();
}

CurlNetworkThread::CurlNetworkThread() {
    static std::once_flag globalInit;
    std::call_once(globalInit, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    multi_.reset(curl_multi_init());
    if (multi_) {
        curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, maximumCachedConnections);
    }
    thread_ = std::thread([this] { run(); });
}

CurlNetworkThread::~CurlNetworkThread() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    if (multi_) {
        curl_multi_wakeup(multi_.get());
    }
    if (isCurrent()) {
        thread_.detach();
    } else if (thread_.joinable()) {
        thread_.join();
    }
}

void CurlNetworkThread::start(std::shared_ptr<CurlTransfer> transfer) {
    if (!multi_) {
        transfer->fail(UrlError::unknown, "The network thread could not be set up.");
        return;
    }
    post({Command::Kind::start, std::move(transfer)});
}

void CurlNetworkThread::cancel(std::shared_ptr<CurlTransfer> transfer) {
    if (multi_) {
        post({Command::Kind::cancel, std::move(transfer)});
    }
}

void CurlNetworkThread::resumeReceiving(std::shared_ptr<CurlTransfer> transfer) {
    if (multi_) {
        post({Command::Kind::resumeReceiving, std::move(transfer)});
    }
}

void CurlNetworkThread::post(Command command) {
    bool wake = false;
    {
        std::lock_guard lock(mutex_);
        inbox_.push_back(std::move(command));
        wake = !wakePending_ && !spinning_;
        wakePending_ = true;
    }
    if (wake) {
        curl_multi_wakeup(multi_.get());
    }
}

void CurlNetworkThread::run() {
    if (!multi_) {
        return;
    }
    // A peer that closes while we write must not raise SIGPIPE against the process.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);

    while (true) {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) {
                break;
            }
        }
        takeCommands();
        int stillRunning = 0;
        curl_multi_perform(multi_.get(), &stillRunning);
        if (!runningStreams_.empty()) {
            publishStreams();
        }
        bool finished = collectFinished();
        failIdleTransfers();
        if (finished && running_.empty() && awaitCommandsBriefly()) {
            continue;
        }
        if (!running_.empty() && awaitSocketsBriefly()) {
            continue;
        }
        curl_multi_poll(multi_.get(), nullptr, 0, nextWaitMilliseconds(), nullptr);
    }
    abandonAll();
}

bool CurlNetworkThread::awaitSocketsBriefly() {
    return socketSpin_.wait([this] {
        int ready = 0;
        curl_multi_poll(multi_.get(), nullptr, 0, 0, &ready);
        return ready > 0 || wakePending_.load();
    });
}

bool CurlNetworkThread::awaitCommandsBriefly() {
    {
        std::lock_guard lock(mutex_);
        if (wakePending_ || stopping_) {
            return true;
        }
        spinning_ = true;
    }
    commandSpin_.wait([this] { return wakePending_.load(); });
    // A command posted while spinning_ was set sent no wake-up, so look once more under the lock.
    std::lock_guard lock(mutex_);
    spinning_ = false;
    return wakePending_ || stopping_;
}

void CurlNetworkThread::takeCommands() {
    std::vector<Command> commands;
    {
        std::lock_guard lock(mutex_);
        commands.swap(inbox_);
        wakePending_ = false;
    }
    for (auto& command : commands) {
        switch (command.kind) {
            case Command::Kind::start:
                admit(std::move(command.transfer));
                break;
            case Command::Kind::cancel:
                remove(command.transfer);
                break;
            case Command::Kind::checkTime:
                // Bytes that moved meanwhile put the deadline later; an expired transfer
                // fails in failIdleTransfers. A paused one is watched again when it resumes.
                if (running_.count(command.transfer->easy()) != 0 &&
                    !command.transfer->isReceivePaused() && !command.transfer->isIdleTooLong()) {
                    watchIdleDeadline(command.transfer);
                }
                break;
            case Command::Kind::resumeReceiving:
                resume(command.transfer);
                break;
        }
    }
}

void CurlNetworkThread::admit(std::shared_ptr<CurlTransfer> transfer) {
    HostSlots& slots = hosts_[transfer->hostKey()];
    if (slots.running < transfer->maxConnectionsPerHost()) {
        begin(std::move(transfer));
    } else {
        slots.waiting.push_back(std::move(transfer));
    }
}

void CurlNetworkThread::begin(std::shared_ptr<CurlTransfer> transfer) {
    CURL* easy = transfer->easy();
    transfer->markStarted();
    HostSlots& slots = hosts_[transfer->hostKey()];
    if (curl_multi_add_handle(multi_.get(), easy) != CURLM_OK) {
        if (slots.running == 0 && slots.waiting.empty()) {
            hosts_.erase(transfer->hostKey());
        }
        transfer->fail(UrlError::unknown, "The transfer could not be started.");
        return;
    }
    slots.running += 1;
    watchIdleDeadline(transfer);
    if (transfer->isStreamed()) {
        runningStreams_.push_back(transfer.get());
    }
    running_.emplace(easy, std::move(transfer));
}

void CurlNetworkThread::resume(const std::shared_ptr<CurlTransfer>& transfer) {
    if (running_.count(transfer->easy()) == 0 || !transfer->isReceivePaused()) {
        return;
    }
    transfer->resumeReceiving();
    if (!transfer->isReceivePaused()) {
        watchIdleDeadline(transfer);
    }
}

void CurlNetworkThread::publishStreams() {
    for (CurlTransfer* transfer : runningStreams_) {
        transfer->publishReceived();
    }
}

void CurlNetworkThread::watchIdleDeadline(const std::shared_ptr<CurlTransfer>& transfer) {
    const auto& scheduler = transfer->scheduler();
    if (scheduler == Scheduler::system()) {
        return;
    }
    auto delay = Scheduler::Duration(transfer->idleDeadline() - scheduler->uptime());
    transfer->setIdleWatch(
        scheduler->schedule(delay, DispatchQueue::global(),
                            [network = weak_from_this(), weakTransfer = std::weak_ptr(transfer)] {
                                auto self = network.lock();
                                auto transfer = weakTransfer.lock();
                                if (self && transfer) {
                                    self->post({Command::Kind::checkTime, std::move(transfer)});
                                }
                            }));
}

void CurlNetworkThread::remove(const std::shared_ptr<CurlTransfer>& transfer) {
    if (running_.count(transfer->easy()) != 0) {
        release(transfer->easy());
        return;
    }
    auto slots = hosts_.find(transfer->hostKey());
    if (slots == hosts_.end()) {
        return;  // already finished
    }
    auto& waiting = slots->second.waiting;
    waiting.erase(std::remove(waiting.begin(), waiting.end(), transfer), waiting.end());
    if (slots->second.running == 0 && waiting.empty()) {
        hosts_.erase(slots);
    }
}

std::shared_ptr<CurlTransfer> CurlNetworkThread::release(CURL* easy) {
    auto found = running_.find(easy);
    if (found == running_.end()) {
        return nullptr;
    }
    std::shared_ptr<CurlTransfer> transfer = std::move(found->second);
    running_.erase(found);
    curl_multi_remove_handle(multi_.get(), easy);
    transfer->cancelIdleWatch();
    if (transfer->isStreamed()) {
        std::erase(runningStreams_, transfer.get());
    }

    auto slots = hosts_.find(transfer->hostKey());
    if (slots != hosts_.end()) {
        slots->second.running -= 1;
        auto& waiting = slots->second.waiting;
        if (!waiting.empty() && slots->second.running < waiting.front()->maxConnectionsPerHost()) {
            auto next = std::move(waiting.front());
            waiting.pop_front();
            begin(std::move(next));
        } else if (slots->second.running <= 0 && waiting.empty()) {
            hosts_.erase(slots);
        }
    }
    return transfer;
}

bool CurlNetworkThread::collectFinished() {
    bool any = false;
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_.get(), &queued)) {
        if (message->msg != CURLMSG_DONE) {
            continue;
        }
        CURLcode result = message->data.result;
        if (auto transfer = release(message->easy_handle)) {
            transfer->complete(result);
            any = true;
        }
    }
    return any;
}

void CurlNetworkThread::failIdleTransfers() {
    std::vector<CURL*> idle;
    for (const auto& [easy, transfer] : running_) {
        if (transfer->isIdleTooLong()) {
            idle.push_back(easy);
        }
    }
    for (CURL* easy : idle) {
        if (auto transfer = release(easy)) {
            transfer->fail(UrlError::timedOut, "No data moved within the request's time-out.");
        }
    }
}

int CurlNetworkThread::nextWaitMilliseconds() {
    long curlWait = -1;
    curl_multi_timeout(multi_.get(), &curlWait);
    long wait =
        curlWait >= 0 ? std::min<long>(curlWait, longestWaitMilliseconds) : longestWaitMilliseconds;
    for (const auto& [easy, transfer] : running_) {
        if (transfer->isReceivePaused()) {
            continue;
        }
        double untilIdle = transfer->idleDeadline() - transfer->scheduler()->uptime();
        auto milliseconds = static_cast<long>(std::ceil(std::clamp(untilIdle, 0.0, 3600.0) * 1000));
        wait = std::min(wait, milliseconds);
    }
    return static_cast<int>(wait);
}

void CurlNetworkThread::abandonAll() {
    for (auto& [easy, transfer] : running_) {
        curl_multi_remove_handle(multi_.get(), easy);
        transfer->cancelIdleWatch();
    }
    running_.clear();
    runningStreams_.clear();
    hosts_.clear();
    std::lock_guard lock(mutex_);
    inbox_.clear();
}

}  // namespace zarvo
