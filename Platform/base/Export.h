#pragma once

/// What a program that uses the library can see of it: the rest has hidden visibility, so that a
/// shared library offers no more than its headers do.
#define PLATFORM_EXPORT __attribute__((visibility("default")))
