#pragma once

#include <vexa/imp/VImage.h>
