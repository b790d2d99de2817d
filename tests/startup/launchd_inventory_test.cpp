#include "core/startup/launchd_inventory.hpp"

#include <gtest/gtest.h>
