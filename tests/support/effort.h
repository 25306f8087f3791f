/// How much a test may do where it could go on for as long as one lets it.
#ifndef KYBRIDGE_TESTS_SUPPORT_EFFORT_H
#define KYBRIDGE_TESTS_SUPPORT_EFFORT_H

#include <cstdint>
#include <cstdlib>
#include <cstring>

/// A number from the environment. @param otherwise where it is not set
inline std::uint64_t environment(const char *name, std::uint64_t otherwise)
{
    const char *const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

/// Whether everything runs many times slower: under a sanitizer, under valgrind, or where one says so.
inline bool reduced_effort()
{
#if defined(__SANITIZE_ADDRESS__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return true;
#endif
#endif
    const char *const preloaded = std::getenv("LD_PRELOAD"); // valgrind loads a part of itself first
    return (preloaded != nullptr && std::strstr(preloaded, "vgpreload") != nullptr) ||
           environment("KYBRIDGE_REDUCED_EFFORT", 0) != 0;
}

#endif
