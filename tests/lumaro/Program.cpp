#include <tests/lumaro/Program.h>

#include <fstream>
#include <iterator>

namespace Support {

namespace {

namespace fs = std::filesystem;

fs::path programFile() {
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return fs::path(path).parent_path() / "lumaro.exe";
}

}  // namespace

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

Program::Program(const fs::path& folder, const std::vector<std::wstring>& arguments)
    : mOutput(folder / "stdout.txt"), mErrors(folder / "stderr.txt") {
    std::wstring line = L"\"" + programFile().wstring() + L"\"";
    for (const std::wstring& argument : arguments) {
        line += L" \"" + argument + L"\"";
    }
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const auto open = [&](const fs::path& file) {
        return CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                           CREATE_ALWAYS, 0, nullptr);
    };
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = open(mOutput);
    startup.hStdError = open(mErrors);
    startup.hStdInput = INVALID_HANDLE_VALUE;
    mStarted = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, folder.c_str(),
                              &startup, &mProcess) != 0;
    CloseHandle(startup.hStdOutput);
    CloseHandle(startup.hStdError);
}

Program::~Program() {
    if (mStarted) {
        CloseHandle(mProcess.hProcess);
        CloseHandle(mProcess.hThread);
    }
}

Result Program::wait() const {
    Result result{9999, "", "the program did not start or did not end"};
    if (mStarted && WaitForSingleObject(mProcess.hProcess, 300000) == WAIT_OBJECT_0) {
        GetExitCodeProcess(mProcess.hProcess, &result.exitCode);
        result.output = contents(mOutput);
        result.errors = contents(mErrors);
    }
    return result;
}

}  // namespace Support
