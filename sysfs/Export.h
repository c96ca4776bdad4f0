#pragma once

/** Marks what libsysfsgpio offers to its users; everything else stays hidden. */
#define SYSFSGPIO_EXPORT __attribute__((visibility("default")))
