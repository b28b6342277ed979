#include <core/Mutex.h>

#if defined(__MINGW32__)

#include <windows.h>

namespace Core {

// Both of the system's objects are one pointer, null at first.
static_assert(sizeof(SRWLOCK) == sizeof(void*) && sizeof(CONDITION_VARIABLE) == sizeof(void*));

namespace {

SRWLOCK* lockIn(void*& place) {
    return reinterpret_cast<SRWLOCK*>(&place);
}

CONDITION_VARIABLE* conditionIn(void*& place) {
    return reinterpret_cast<CONDITION_VARIABLE*>(&place);
}

}  // namespace

void Mutex::lock() noexcept {
    AcquireSRWLockExclusive(lockIn(mLock));
}

void Mutex::unlock() noexcept {
    ReleaseSRWLockExclusive(lockIn(mLock));
}

void ConditionVariable::notify_one() noexcept {
    WakeConditionVariable(conditionIn(mCondition));
}

void ConditionVariable::notify_all() noexcept {
    WakeAllConditionVariable(conditionIn(mCondition));
}

void ConditionVariable::wait(std::unique_lock<Mutex>& lock) noexcept {
    SleepConditionVariableSRW(conditionIn(mCondition), lockIn(lock.mutex()->mLock), INFINITE, 0);
}

void ConditionVariable::wait_for(std::unique_lock<Mutex>& lock, std::chrono::milliseconds longest) noexcept {
    SleepConditionVariableSRW(conditionIn(mCondition), lockIn(lock.mutex()->mLock),
                              static_cast<DWORD>(longest.count()), 0);
}

}  // namespace Core

#endif
