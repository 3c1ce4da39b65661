#include <vexa/imp/VCascadeClassifier.h>
