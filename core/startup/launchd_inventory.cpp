#include "core/startup/launchd_inventory.hpp"
