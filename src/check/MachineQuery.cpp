#include "check/MachineQuery.h"

#include "check/CameraQuery.h"
#include "check/ComApartment.h"
#include "check/DfuDeviceQuery.h"
#include "check/ImageQuery.h"
#include "check/LogonQuery.h"
#include "check/ServiceQuery.h"
#include "check/ToastControllerQuery.h"
#include "check/UpdateModeQuery.h"

namespace check {

MachineState QueryMachine() {
    const ComApartment apartment;
    MachineState machine;
    machine.service = QueryService();
    machine.updateMode = QueryUpdateMode();
    machine.image = QueryImage();
    machine.toastController = QueryToastController();
    machine.cameras = QueryCameras();
    machine.dfuDevices = QueryDfuDevices();
    machine.isNobodyLoggedOn = IsNobodyLoggedOn();
    return machine;
}

}  // namespace check
