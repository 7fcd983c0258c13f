// How the library's formatters put text into a record's formatted line.
#pragma once

#include <boost/log/utility/formatting_ostream.hpp>

#include <string_view>

namespace VT::Logging::v2::impl {

// Appends `text` to the line straight through the stream's buffer, keeping the stream's size
// limit but skipping its per-insertion work: the library's formatters use no width, fill or
// locale. A formatter that uses it first calls begin_text, so text buffered in the stream
// before it (by anyone) stays in front.
inline void append_text(boost::log::formatting_ostream& out, std::string_view text)
{
    out.rdbuf()->append(text.data(), text.size());
}

inline void begin_text(boost::log::formatting_ostream& out)
{
    out.rdbuf()->pubsync();
}

} // namespace VT::Logging::v2::impl
