#pragma once

// What the library calls and the firmware implements. The symbols stay undefined in libthermal.so and are
// resolved by the process that loads it, so they keep default visibility even where everything else is hidden.
#define PLATFORM_API __attribute__((visibility("default")))
