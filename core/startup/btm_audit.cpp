#include "core/startup/btm_audit.hpp"
