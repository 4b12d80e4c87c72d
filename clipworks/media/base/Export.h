#pragma once

/// Marks what the shared library offers to its users; everything else stays hidden.
#define CLIPWORKS_API __attribute__((visibility("default")))
