#include "core/startup/btm_audit.hpp"

#include <gtest/gtest.h>
