#pragma once

#include "tracelog.h"

#include <string>

namespace tracelog {

/// The record that all `trace*` functions work on, null before any `traceInit`.
TraceParams* current();

/// Writes an error line whose text is used as a format without arguments: "%%" becomes "%", everything else,
/// conversions included, is written as it is. Returns what `traceError` returns.
bool writeComposedError(const std::string& text);

} // namespace tracelog
