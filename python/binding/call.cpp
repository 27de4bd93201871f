#include "call.h"

#include "convert.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace tio::python {

namespace {

thread_local Call* innermost = nullptr;

// Python handles signals in its main thread alone, which after fork() is the one that forked.
bool isMainThread() {
    return ::syscall(SYS_gettid) == ::getpid();
}

const char* nameOf(ffmpeg::IndexProgress::Step step) {
    using Step = ffmpeg::IndexProgress::Step;
    return wordOf(
        step,
        {{Step::Packets, "packets"}, {Step::Pictures, "pictures"}, {Step::Samples, "samples"}});
}

} // namespace

Call::Call() noexcept : outer(std::exchange(innermost, this)) {}

Call::~Call() {
    innermost = outer;
}

Call* Call::current() noexcept {
    return innermost;
}

void Call::keep(py::error_already_set& raised) {
    if (!kept)
        kept.emplace(std::move(raised));
}

bool Call::handleSignals() {
    if (kept)
        return false;
    if (!isMainThread())
        return true;
    const py::gil_scoped_acquire gil;
    if (PyErr_CheckSignals() == 0)
        return true;
    py::error_already_set raised;
    keep(raised);
    return false;
}

void Call::raiseKept() {
    if (!kept)
        return;
    py::error_already_set raised = std::move(*kept);
    kept.reset();
    throw raised; // NOLINT(cert-err60-cpp,cert-err09-cpp,cert-err61-cpp): pybind11's own way
}

bool callShallEnd() {
    Call* call = Call::current();
    return call != nullptr && !call->handleSignals();
}

Turns::Turns() : mutex(std::make_unique<std::timed_mutex>()), process(::getpid()) {}

bool Turns::noticeFork() {
    if (process == ::getpid())
        return false;
    process = ::getpid();
    static_cast<void>(mutex.release()); // a locked one may not be destroyed
    mutex = std::make_unique<std::timed_mutex>();
    return owner.exchange(std::thread::id()) != std::thread::id();
}

Turns::Turn::Turn(Turns& all) : turns(all) {
    constexpr std::chrono::milliseconds untilSignalsAreLookedAt{100};
    if (turns.owner.load() == std::this_thread::get_id())
        throw CalledWithinCall("called by a callback of its own call");
    while (!turns.mutex->try_lock_for(untilSignalsAreLookedAt)) {
        if (callShallEnd())
            throw PythonRaised();
    }
    turns.owner.store(std::this_thread::get_id());
}

Turns::Turn::~Turn() {
    turns.owner.store(std::thread::id());
    turns.mutex->unlock();
}

std::shared_ptr<py::object> shareObject(py::object object) {
    return {new py::object(std::move(object)), [](py::object* held) {
                if (Py_IsInitialized() == 0)
                    return; // the interpreter has taken it along
                const py::gil_scoped_acquire gil;
                delete held; // NOLINT(cppcoreguidelines-owning-memory)
            }};
}

ffmpeg::IndexProgressCallback progressOf(const py::object& function) {
    const auto shared = function.is_none() ? nullptr : shareObject(function);
    return [shared](const ffmpeg::IndexProgress& progress) {
        if (callShallEnd())
            return false;
        if (!shared)
            return true;
        try {
            return inPython([&] {
                return (*shared)(nameOf(progress.step), progress.done, progress.total).cast<bool>();
            });
        } catch (const PythonRaised&) {
            return false;
        }
    };
}

} // namespace tio::python
