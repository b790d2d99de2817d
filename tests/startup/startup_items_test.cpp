#include "core/startup/startup_items.hpp"

#include <gtest/gtest.h>
