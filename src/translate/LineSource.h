#pragma once

#include <QByteArrayView>

#include <functional>
#include <optional>

namespace vesk::translate {

/// Gives one line after the other, without line feeds, then nothing. A line is valid until the next
/// call.
using LineSource = std::function<std::optional<QByteArrayView>()>;

} // namespace vesk::translate
