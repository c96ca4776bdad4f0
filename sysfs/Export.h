#pragma once

/** Marks what libsysfsgpio exports. Everything else stays hidden. */
#define SYSFSGPIO_EXPORT __attribute__((visibility("default")))
