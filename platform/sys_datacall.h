// System family: cellular data calls and name resolution.
#pragma once

#include <cstddef>
#include <cstdint>
