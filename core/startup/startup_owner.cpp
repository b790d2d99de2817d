#include "core/startup/startup_owner.hpp"
