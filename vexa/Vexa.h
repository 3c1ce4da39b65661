/// @file
/// @brief The whole public interface of the Vexa image library in one include.
///
/// Includes every header of the library's types and operations (the `vexa/imp` and `vexa/gen` ones),
/// `vlog/VLog.h`, and through them `vcore/VSerialization.h`. Each header may also be included on its own.
#pragma once

#include <vlog/VLog.h>

#include <vexa/imp/BufferPool.h>
#include <vexa/imp/ImageData.h>
#include <vexa/imp/VHistogram.h>
#include <vexa/imp/VImage.h>
#include <vexa/imp/VConvKernel.h>
#include <vexa/imp/VFigure.h>
#include <vexa/imp/VImageList.h>
#include <vexa/imp/VTransform.h>
#include <vexa/imp/VKeypointDescriptors.h>
#include <vexa/imp/VRasterPyramid.h>
#include <vexa/imp/VImageBlender.h>
#include <vexa/imp/VProgress.h>
#include <vexa/imp/VCascadeClassifier.h>
#include <vexa/imp/exceptions.h>
#include <vexa/imp/formats.h>
#include <vexa/imp/ocvImage.h>
#include <vexa/imp/qimage_support.h>
#include <vexa/imp/image_files.h>
#include <vexa/imp/raw_files.h>
#include <vexa/imp/file_metadata.h>
#include <vexa/imp/raster.h>

#include <vexa/gen/gen_analysis_image.h>
#include <vexa/gen/gen_copy_image.h>
#include <vexa/gen/gen_histograms.h>
#include <vexa/gen/gen_image_converters.h>
#include <vexa/gen/gen_math_image.h>
#include <vexa/gen/gen_morph_image.h>
#include <vexa/gen/gen_normalization.h>
#include <vexa/gen/gen_draw_image.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>
#include <vexa/gen/gen_matrix_image.h>
#include <vexa/gen/gen_stat_image.h>
#include <vexa/gen/gen_keypoint_image.h>
#include <vexa/gen/gen_stabilize_image.h>
#include <vexa/gen/gen_panorama_image.h>
#include <vexa/gen/gen_calibration_image.h>
