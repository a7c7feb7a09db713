// The export macro and the compiler's checks, for every header of the library.
#pragma once

// Classes and functions of the interface. KERNEL_API_DLLEXPORT is set while the library itself is compiled for Windows,
// KERNEL_API_DLLIMPORT for a program that links the shared library there; the package files set it.
#if defined(KERNEL_API_DLLEXPORT)
#define KERNEL_API __declspec(dllexport)
#elif defined(KERNEL_API_DLLIMPORT)
#define KERNEL_API __declspec(dllimport)
#else
#define KERNEL_API __attribute__((visibility("default")))
#endif

// printf check: `format` and `first` count parameters from 1, the hidden `this` included.
#if defined(__clang__)
#define KERNEL_PRINTF(format_at, first) __attribute__((format(printf, format_at, first)))
#else
#define KERNEL_PRINTF(format_at, first) __attribute__((format(gnu_printf, format_at, first)))
#endif

// Lock annotations, read by clang's -Wthread-safety and by people; other compilers see nothing.
#if defined(__clang__)
#define KERNEL_ANNOTATION(x) __attribute__((x))
#else
#define KERNEL_ANNOTATION(x)
#endif
#define KERNEL_CAPABILITY(x) KERNEL_ANNOTATION(capability(x))
#define KERNEL_SCOPED_CAPABILITY KERNEL_ANNOTATION(scoped_lockable)
#define KERNEL_GUARDED_BY(x) KERNEL_ANNOTATION(guarded_by(x))
#define KERNEL_REQUIRES(x) KERNEL_ANNOTATION(requires_capability(x))
#define KERNEL_EXCLUDES(x) KERNEL_ANNOTATION(locks_excluded(x))
#define KERNEL_ACQUIRE(...) KERNEL_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KERNEL_RELEASE(...) KERNEL_ANNOTATION(release_capability(__VA_ARGS__))
