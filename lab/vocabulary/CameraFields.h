#pragma once

#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "lab/camera/CameraSettings.h"
#include "lab/camera/Fault.h"

namespace lab {

// Reads what a camera of the wire's stage says of the camera itself, and puts every field that is not the
// camera's into `others`: those of the machine that it is plugged into. Throws std::runtime_error or a JSON
// exception, with a text that names the field, for a value that is impossible.
[[nodiscard]] CameraSettings ReadCameraFields(const nlohmann::json& fields, nlohmann::json& others);

// Reads a camera's list of faults, and refuses it as ReadCameraFields() does.
[[nodiscard]] std::vector<Fault> ReadFaults(const nlohmann::json& list);

// The fields by which ReadCameraFields() gets such a camera: what its boot loader and its flash are, and its
// times; neither its faults nor its descriptors.
[[nodiscard]] nlohmann::json WriteCameraFields(const CameraSettings& camera);

// The fields by which ReadFaults() gets such a fault.
[[nodiscard]] nlohmann::json WriteFault(const Fault& fault);

}  // namespace lab
