// Platform HTTP client.
#pragma once

#include <string>
