#include <vexa/Vexa.h>

#include <gtest/gtest.h>
