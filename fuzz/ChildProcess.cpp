#include <core/ExceptionChain.h>
#include <fuzz/ChildProcess.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <array>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>

namespace Fuzz {

namespace {

std::string textOf(const std::function<std::string()>& function) {
    try {
        return function();
    } catch (const std::exception& error) {
        return Core::exceptionChain(error);
    }
}

[[noreturn]] void runAndEnd(const std::function<std::string()>& function, unsigned maxSeconds, int output) {
    ::alarm(maxSeconds);
    const std::string text = textOf(function);
    const bool isWritten = ::write(output, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::_exit(isWritten ? 0 : 1);
}

std::string readAll(int input) {
    std::string text;
    std::array<char, 4096> part;
    for (ssize_t size; (size = ::read(input, part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(size));
    }
    return text;
}

}  // namespace

ChildResult runInChild(const std::function<std::string()>& function, unsigned maxSeconds) {
    std::array<int, 2> ends;
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    std::fflush(nullptr);
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        runAndEnd(function, maxSeconds, ends[1]);
    }
    ::close(ends[1]);
    ChildResult result;
    result.text = readAll(ends[0]);
    ::close(ends[0]);
    int status = 0;
    rusage usage{};
    if (child < 0 || ::wait4(child, &status, 0, &usage) != child) {
        throw std::runtime_error("cannot start a process");
    }
    result.time = std::chrono::steady_clock::now() - start;
    result.memoryBytes = static_cast<std::size_t>(usage.ru_maxrss) * 1024;
    result.wasKilled = WIFSIGNALED(status);
    if (result.wasKilled) {
        result.text = std::string("ended by: ") + ::strsignal(WTERMSIG(status));
    }
    return result;
}

}  // namespace Fuzz
