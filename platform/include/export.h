// Marks what the platform library offers to others. Everything else in it is hidden, so that a call
// cannot come to rely on it.
#ifndef PLATFORM_EXPORT_H
#define PLATFORM_EXPORT_H

// NOLINTNEXTLINE(cppcoreguidelines-macro-usage)
#define MDOMAIN_EXPORT __attribute__((visibility("default")))

#endif  // PLATFORM_EXPORT_H
