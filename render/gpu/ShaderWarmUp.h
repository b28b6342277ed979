#pragma once

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace Render {

/// Internal: compiles the embedded shaders on threads of its own, those of a point cloud first, so that the
/// thread that needs one finds it done or under way. The first of a process does so, all others do nothing.
/// Whoever asks for a shader sees what is wrong with it; here failures are left alone. The destructor lets a
/// compilation that is under way end, which takes a fraction of a second.
class ShaderWarmUp {
public:
    ShaderWarmUp();
    ~ShaderWarmUp();
    ShaderWarmUp(const ShaderWarmUp&) = delete;
    ShaderWarmUp& operator=(const ShaderWarmUp&) = delete;

private:
    void compileNext(const std::stop_token& stop);

    std::atomic<std::size_t> mNext{0};
    std::vector<std::jthread> mThreads;
};

}  // namespace Render
