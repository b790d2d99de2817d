#include "core/startup/startup_items.hpp"
