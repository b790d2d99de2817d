#include "core/common/ov_error.hpp"
