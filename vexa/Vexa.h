// The whole public interface of the Vexa image library.
#pragma once

#include <vlog/VLog.h>

#include <vexa/imp/exceptions.h>
#include <vexa/imp/formats.h>
