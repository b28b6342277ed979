#include <core/Log.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>

namespace Core {

namespace {

using Sink = std::function<void(std::string_view)>;

struct SharedSink {
    std::mutex mutex;
    std::shared_ptr<const Sink> sink;  ///< Guarded by mutex; null for the default. Called without it.
};

/// Never destroyed: threads that outlive main may still report.
SharedSink& sharedSink() {
    static SharedSink& shared = *new SharedSink;
    return shared;
}

void writeToStderr(std::string_view message) {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(message.size()), message.data());
}

}  // namespace

void Log::error(std::string_view message) noexcept {
    try {
        std::shared_ptr<const Sink> sink;
        {
            const std::lock_guard lock(sharedSink().mutex);
            sink = sharedSink().sink;
        }
        if (sink) {
            (*sink)(message);
        } else {
            writeToStderr(message);
        }
    } catch (...) {  // There is nobody left to tell.
    }
}

void Log::setSink(Sink sink) {
    auto replaced = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
    const std::lock_guard lock(sharedSink().mutex);
    sharedSink().sink.swap(replaced);
}

}  // namespace Core
