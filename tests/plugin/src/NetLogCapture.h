// The log capture lives in tests/support/LogCapture.h now. This old name is
// kept only until the last suites that still include it have moved over.
#pragma once

#include "LogCapture.h"

namespace CorvaneTest {
using NetLogCapture = LogCapture;
}  // namespace CorvaneTest
