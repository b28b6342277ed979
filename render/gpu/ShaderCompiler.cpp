#include <core/File.h>
#include <render/gpu/CComPtr.h>
#include <render/gpu/ShaderCompiler.h>
#include <render/gpu/ShaderInclude.h>
#include <render/gpu/ShaderLibrary.h>

#include <d3dcompiler.h>

#include <atomic>
#include <exception>
#include <future>
#include <map>
#include <mutex>
#include <stdexcept>
#include <tuple>

namespace Render::ShaderCompiler {

namespace {

std::string textOf(ID3DBlob* blob) {
    if (blob == nullptr) {
        return {};
    }
    return {static_cast<const char*>(blob->GetBufferPointer()), blob->GetBufferSize()};
}

class ByteCodeCache {
public:
    std::string get(const std::string& name, const char* entryPoint, const char* target) {
        const std::string_view source = ShaderLibrary::content(name);
        const Key key(ShaderLibrary::normalizedPath(name), entryPoint, target);
        std::promise<std::string> promise;
        std::shared_future<std::string> code;
        bool isMine = false;
        {
            const std::lock_guard lock(mMutex);
            const auto found = mCodes.find(key);
            isMine = found == mCodes.end();
            code = isMine ? promise.get_future().share() : found->second;
            if (isMine) {
                mCodes.emplace(key, code);
            }
        }
        if (isMine) {
            compileFor(key, source, name, promise);
        }
        return code.get();
    }

    std::size_t compilations() const { return mCompilations; }

private:
    using Key = std::tuple<std::string, std::string, std::string>;

    void compileFor(const Key& key, std::string_view source, const std::string& name,
                    std::promise<std::string>& promise) {
        ++mCompilations;
        try {
            ShaderInclude include;
            promise.set_value(
                compile(source, name, &include, std::get<1>(key).c_str(), std::get<2>(key).c_str()));
        } catch (...) {
            {
                const std::lock_guard lock(mMutex);
                mCodes.erase(key);
            }
            promise.set_exception(std::current_exception());
        }
    }

    std::mutex mMutex;
    std::map<Key, std::shared_future<std::string>> mCodes;  ///< Guarded by mMutex.
    std::atomic<std::size_t> mCompilations{0};
};

ByteCodeCache& byteCodeCache() {
    static ByteCodeCache cache;
    return cache;
}

}  // namespace

std::string compile(std::string_view source, const std::string& sourceName, ID3DInclude* include,
                    const char* entryPoint, const char* target) {
    constexpr UINT flags =
        D3DCOMPILE_ENABLE_STRICTNESS | D3DCOMPILE_OPTIMIZATION_LEVEL3 | D3DCOMPILE_WARNINGS_ARE_ERRORS;
    ATL::CComPtr<ID3DBlob> code;
    ATL::CComPtr<ID3DBlob> messages;
    const HRESULT result = D3DCompile(source.data(), source.size(), sourceName.c_str(), nullptr, include,
                                      entryPoint, target, flags, 0, &code, &messages);
    if (result < 0) {
        throw std::runtime_error("Error: Compilation of hlsl shader failed\n" + textOf(messages));
    }
    return textOf(code);
}

std::string compileResource(const std::string& name, const char* entryPoint, const char* target) {
    return byteCodeCache().get(name, entryPoint, target);
}

std::size_t resourceCompilations() {
    return byteCodeCache().compilations();
}

std::string compileFile(const std::filesystem::path& path, const char* entryPoint, const char* target) {
    const std::string source = Core::readLocalFile(path);
    return compile(source, path.string(), D3D_COMPILE_STANDARD_FILE_INCLUDE, entryPoint, target);
}

}  // namespace Render::ShaderCompiler
