#include "support/images.h"

#include <gtest/gtest.h>
