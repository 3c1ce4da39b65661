#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>
