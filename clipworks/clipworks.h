#pragma once

/// All operations of the library, and what a host needs to use them: where outputs go, and the queue that results
/// arrive on.

#include <clipworks/compressor/VideoCompressorUtils.h>
#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/HEVCSupport.h>
#include <clipworks/foundation/VideoCompressorPreset.h>
#include <clipworks/looper/VideoLooperUtils.h>
#include <clipworks/media/base/FileManager.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/narration/VideoNarrationUtils.h>
#include <clipworks/reverse/VideoReverseConverter.h>
#include <clipworks/rotate/VideoRotateUtils.h>
#include <clipworks/speed/VideoSpeedConverter.h>
#include <clipworks/tophoto/VideoToPhotoUtils.h>
