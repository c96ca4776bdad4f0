#pragma once

/** Marks what libfrontpanelhw offers to applications; everything else stays hidden. */
#define FRONTPANELHW_EXPORT __attribute__((visibility("default")))

/** Keeps a member of an exported class inside the library. */
#define FRONTPANELHW_HIDDEN __attribute__((visibility("hidden")))
