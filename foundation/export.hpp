#pragma once

// Marks what libthermal.so offers to board code; every other symbol stays inside the library.
#define THERMAL_API __attribute__((visibility("default")))
