// What an endpoint physically is: the machine's own microphone or speaker, an external
// analog jack, a USB device or a virtual one. Each answer comes from facts the device
// carries (node type, enumerator name, state) or fetches (its jack descriptions).
#pragma once

#include "foundation/export.h"
#include "libAudio/AudioDevice.h"

namespace libAudio {

// The node type is one of the five speaker kinds.
LIBAUDIO_API bool acceptableSpeakerTypes(const AudioDevice& device);

// A desktop, personal, omnidirectional or array microphone whose jacks all look internal,
// or that has no jack descriptions at all. A plain microphone node never is.
LIBAUDIO_API bool isInternalMicrophone(AudioDevice& device);
// A speaker whose jacks all look internal. Without jack descriptions a plain speaker node is
// not internal, while a desktop, room, communication or low-frequency speaker is.
LIBAUDIO_API bool isInternalSpeaker(AudioDevice& device);

// Part of the machine rather than plugged in: never a virtual (ROOT) device; a USB
// microphone or speaker is; a plain node without jack descriptions is not; a microphone
// behind an external analog jack is not; anything else is.
LIBAUDIO_API bool isIntegratedMicrophone(AudioDevice& device);
LIBAUDIO_API bool isIntegratedSpeaker(AudioDevice& device);

// Reads the device's state from the platform again; false when that fails.
LIBAUDIO_API bool isActive(AudioDevice& device);
// Some jack is a 3.5 mm, quarter-inch or RCA jack.
LIBAUDIO_API bool isExternalAnalogJack(AudioDevice& device);
LIBAUDIO_API bool isUSBMicrophone(const AudioDevice& device);
LIBAUDIO_API bool isUSBSpeaker(const AudioDevice& device);
LIBAUDIO_API bool isVirtualDevice(const AudioDevice& device);

// The setting AllowExternalMicTesting.value of section qelrsysinfodirect, read as a
// boolean; false when it is not set.
LIBAUDIO_API bool allowExternalMicTesting();

} // namespace libAudio
