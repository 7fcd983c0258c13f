// What code beside the directory sink may reach of it, none of it exported.
#pragma once

// A seam for tests, empty otherwise: get_dir calls it with the registry locked, just before it
// looks the pattern up, so a test can let a sink die at that very moment.
namespace VT::Logging::v2::impl {
extern void (*get_dir_lookup_hook)();
} // namespace VT::Logging::v2::impl
