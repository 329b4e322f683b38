// Marks what the platform library offers to others. Everything else in it is hidden, so that a call
// cannot come to rely on it.
#ifndef PLATFORM_EXPORT_H
#define PLATFORM_EXPORT_H

// NOLINTNEXTLINE(cppcoreguidelines-macro-usage)
#define MDOMAIN_EXPORT __attribute__((visibility("default")))

// For a class whose objects programs hold and whose members have changed since an earlier release:
// the linker's names of what has to do with it end so. Those without the ending belong to programs
// that were compiled against that release (lib-domain/api/release_1_0.cpp).
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage)
#define MDOMAIN_LAYOUT(NAME) __attribute__((abi_tag(#NAME)))

#endif  // PLATFORM_EXPORT_H
