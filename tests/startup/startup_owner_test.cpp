#include "core/startup/startup_owner.hpp"

#include <gtest/gtest.h>
