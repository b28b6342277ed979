#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderWarmUp.h>

#include <algorithm>
#include <array>
#include <exception>
#include <stop_token>

namespace Render {

namespace {

// In the order in which a first picture needs them, the slowest of each stage first. Nothing in the process
// waits for the last of these before it draws meshes or panoramas.
constexpr std::array<const char*, 5> sources = {"shaders/pointcloud.hlsl", "shaders/postprocessing.hlsl",
                                                "shaders/box.hlsl", "shaders/pano.hlsl", "shaders/mesh.hlsl"};

unsigned threadCount() {
    constexpr unsigned most = 4;
    return std::clamp(std::thread::hardware_concurrency(), 2u, most + 1) - 1;
}

}  // namespace

ShaderWarmUp::ShaderWarmUp() {
    static std::atomic<bool> isDone{false};
    if (isDone.exchange(true)) {
        return;
    }
    for (unsigned i = 0; i < threadCount(); ++i) {
        mThreads.emplace_back([this](const std::stop_token& stop) { compileNext(stop); });
    }
}

ShaderWarmUp::~ShaderWarmUp() {
    for (std::jthread& thread : mThreads) {
        thread.request_stop();
    }
}

void ShaderWarmUp::compileNext(const std::stop_token& stop) {
    constexpr std::size_t count = 2 * sources.size();
    for (std::size_t i = mNext++; i < count && !stop.stop_requested(); i = mNext++) {
        try {
            const char* const source = sources[i / 2];
            if (i % 2 == 0) {
                ShaderCompiler::compileResource(source, "vs_main", "vs_5_0");
            } else {
                ShaderCompiler::compileResource(source, "ps_main", "ps_5_0");
            }
        } catch (const std::exception&) {
            continue;
        }
    }
}

}  // namespace Render
