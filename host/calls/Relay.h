// Telling of calls on their way from the adaptor to a closed library.
//
// libkovcalls.so defines the libraries' functions once more. Loaded into the global scope before the adaptor, it is
// what the adaptor's calls find first; each is handed on to the library itself and then told to whoever listens
// (host/control/Control.h). Without it nothing changes. A file here lists the functions of one library:
//
//     KOV_RELAY_3(px_setSize, "instance,width,height")
//
// with the names of the arguments as they are shown. An empty name leaves one out. Numbers are shown as they were
// before the call, and what a pointer leads to as it is after the call, by an overload of `shown` for its type; what
// `shown` does not know is left out. A name must be empty where the call frees what the pointer leads to.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "host/control/Control.h"

namespace kov::host {

template <typename Function>
struct Signature;
template <typename Result_, typename... Arguments>
struct Signature<Result_(Arguments...)> {
    using Result = Result_;
    template <size_t Index>
    using Argument = std::tuple_element_t<Index, std::tuple<Arguments...>>;
};

/// The address of a function in a library, or null when the library has none of that name.
void* findOriginal(const char* library, const char* function);

/// A value as it is shown; empty for one that tells nothing.
inline std::string shown(int32_t value) {
    return std::to_string(value);
}
inline std::string shown(uint32_t value) {
    return std::to_string(value);
}
inline std::string shown(long value) {
    return std::to_string(value);
}
inline std::string shown(unsigned long value) {
    return std::to_string(value);
}
inline std::string shown(float value) {
    return std::to_string(value);
}
inline std::string shown(const int32_t* value) {
    return value ? std::to_string(*value) : "";
}
inline std::string shown(const uint32_t* value) {
    return value ? std::to_string(*value) : "";
}
inline std::string shown(const long* value) {
    return value ? std::to_string(*value) : "";
}
inline std::string shown(const char* value) {
    return value ? value : "";
}
template <typename Other>
std::string shown(const Other&) {
    return {};
}

/// What the overloads of `shown` are for: pointers to what is only read.
template <typename Value>
const Value* readOnly(Value* value) {
    return value;
}
template <typename Value>
Value readOnly(Value value) {
    return value;
}

/// One call under way on this thread. A library's calls of its own functions within it are not told.
class CallUnderWay {
public:
    CallUnderWay(const char* library, const char* name);
    ~CallUnderWay();
    CallUnderWay(const CallUnderWay&) = delete;
    CallUnderWay& operator=(const CallUnderWay&) = delete;

    /// Adds an argument; an empty value is left out.
    void add(std::string_view name, const std::string& value);
    void tell(const std::string& result);
    /// Whether it will be told at all.
    bool heard() const { return mHeard; }

private:
    const char* const mLibrary;
    const char* const mName;
    const bool mHeard;
    const int64_t mBegin;
    std::string mArguments;
};

/// The next name of a list that is separated by commas; shortens the list.
std::string_view nextName(std::string_view* names);

template <typename Original, typename... Arguments>
auto relay(const char* library, const char* name, std::string_view names, Original* original, Arguments... arguments) {
    using Result = decltype(original(arguments...));
    if (!original)
        return Result();  // as a library that can do nothing
    CallUnderWay call(library, name);
    if (!call.heard())
        return original(arguments...);
    const auto add = [&](const auto& argument) {
        // What has no name is not looked at either: the call may have freed it.
        if (const std::string_view argumentName = nextName(&names); !argumentName.empty())
            call.add(argumentName, shown(readOnly(argument)));
    };
    const auto finish = [&](const std::string& result) {
        (add(arguments), ...);
        call.tell(result);
    };
    if constexpr (std::is_void_v<Result>) {
        original(arguments...);
        finish({});
    } else {
        const Result result = original(arguments...);
        finish(shown(readOnly(result)));
        return result;
    }
}

}  // namespace kov::host

// The file defines kLibrary.
#define KOV_ARGUMENT(function, i) kov::host::Signature<decltype(function)>::Argument<i> a##i
#define KOV_RELAY(function, names, parameters, ...)                                               \
    extern "C" __attribute__((visibility("default")))                                             \
    kov::host::Signature<decltype(function)>::Result function parameters {                        \
        static auto* const original =                                                             \
            reinterpret_cast<decltype(&function)>(kov::host::findOriginal(kLibrary, #function));  \
        return kov::host::relay(kLibrary, #function, names, original __VA_OPT__(, ) __VA_ARGS__); \
    }
#define KOV_PARAMETERS_1(f) KOV_ARGUMENT(f, 0)
#define KOV_PARAMETERS_2(f) KOV_PARAMETERS_1(f), KOV_ARGUMENT(f, 1)
#define KOV_PARAMETERS_3(f) KOV_PARAMETERS_2(f), KOV_ARGUMENT(f, 2)
#define KOV_PARAMETERS_4(f) KOV_PARAMETERS_3(f), KOV_ARGUMENT(f, 3)
#define KOV_PARAMETERS_5(f) KOV_PARAMETERS_4(f), KOV_ARGUMENT(f, 4)
#define KOV_PARAMETERS_6(f) KOV_PARAMETERS_5(f), KOV_ARGUMENT(f, 5)
#define KOV_PARAMETERS_7(f) KOV_PARAMETERS_6(f), KOV_ARGUMENT(f, 6)
#define KOV_PARAMETERS_8(f) KOV_PARAMETERS_7(f), KOV_ARGUMENT(f, 7)
#define KOV_PARAMETERS_9(f) KOV_PARAMETERS_8(f), KOV_ARGUMENT(f, 8)
#define KOV_PARAMETERS_11(f) KOV_PARAMETERS_9(f), KOV_ARGUMENT(f, 9), KOV_ARGUMENT(f, 10)
#define KOV_RELAY_0(f) KOV_RELAY(f, "", ())
#define KOV_RELAY_1(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_1(f)), a0)
#define KOV_RELAY_2(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_2(f)), a0, a1)
#define KOV_RELAY_3(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_3(f)), a0, a1, a2)
#define KOV_RELAY_4(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_4(f)), a0, a1, a2, a3)
#define KOV_RELAY_5(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_5(f)), a0, a1, a2, a3, a4)
#define KOV_RELAY_6(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_6(f)), a0, a1, a2, a3, a4, a5)
#define KOV_RELAY_7(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_7(f)), a0, a1, a2, a3, a4, a5, a6)
#define KOV_RELAY_8(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_8(f)), a0, a1, a2, a3, a4, a5, a6, a7)
#define KOV_RELAY_9(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_9(f)), a0, a1, a2, a3, a4, a5, a6, a7, a8)
#define KOV_RELAY_11(f, names) KOV_RELAY(f, names, (KOV_PARAMETERS_11(f)), a0, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10)
