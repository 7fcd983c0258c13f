// The "time string" and "thread name" attributes that every record carries.
#pragma once

#include <boost/log/core/core.hpp>

namespace VT::Logging::v2::impl {

// Registers "time string" and "thread name" as global attributes of `core`. Called once per
// process, by the first source that is created.
void add_record_attributes(boost::log::core& core);

} // namespace VT::Logging::v2::impl
