#pragma once

#include <d3dcommon.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

/// Internal: HLSL text to byte code, with one set of flags in every build; warnings are errors. A failure
/// throws std::runtime_error with the compiler's messages.
namespace Render::ShaderCompiler {

/// `sourceName` stands in the messages.
std::string compile(std::string_view source, const std::string& sourceName, ID3DInclude* include,
                    const char* entryPoint, const char* target);

/// An embedded source, whose includes are embedded ones. Throws std::system_error when there is none.
///
/// Embedded sources never change: each is compiled once a process, entry point and profile. Whoever asks
/// while another thread compiles it waits for that. Failures are not kept.
std::string compileResource(const std::string& name, const char* entryPoint, const char* target);
/// How many embedded sources were compiled so far, failures included.
std::size_t resourceCompilations();

/// A source on disk, whose includes are found beside it. Throws what Core::readLocalFile() throws.
std::string compileFile(const std::filesystem::path& path, const char* entryPoint, const char* target);

}  // namespace Render::ShaderCompiler
