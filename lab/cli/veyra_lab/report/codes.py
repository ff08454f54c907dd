"""Names and meanings of the numbers in a transcript, for a person who has never seen them."""

from dataclasses import dataclass

_WIN32_FACILITY = 0x80070000
_WIN32_MASK = 0xFFFF0000


@dataclass(frozen=True)
class Code:
    """A status code: its number in hexadecimal, its name in Windows' headers and its meaning in a sentence without a
    full stop. A code that nobody knows has neither name nor meaning."""

    number: str
    name: str
    meaning: str

    def __str__(self) -> str:
        return " ".join(part for part in (self.number, self.name) if part) + (
            f": {self.meaning}" if self.meaning else ""
        )


_WIN32 = {
    1: ("ERROR_INVALID_FUNCTION", "the driver does not know the request"),
    2: ("ERROR_FILE_NOT_FOUND", "the file, device or registry key does not exist"),
    3: ("ERROR_PATH_NOT_FOUND", "the folder does not exist"),
    5: ("ERROR_ACCESS_DENIED", "access was denied, or the device is no longer connected"),
    6: ("ERROR_INVALID_HANDLE", "the device is not open any more"),
    8: ("ERROR_NOT_ENOUGH_MEMORY", "there is not enough memory"),
    13: ("ERROR_INVALID_DATA", "the data is not what was expected"),
    14: ("ERROR_OUTOFMEMORY", "there is not enough memory"),
    21: ("ERROR_NOT_READY", "the device is not ready"),
    22: ("ERROR_BAD_COMMAND", "the device is being taken away, or does not know the command"),
    23: ("ERROR_CRC", "the data was damaged on its way"),
    24: ("ERROR_BAD_LENGTH", "the request is longer than the camera takes in one transfer"),
    31: ("ERROR_GEN_FAILURE", "the device refused the request (a stall on the bus), or left during it"),
    32: ("ERROR_SHARING_VIOLATION", "another program has the file open"),
    87: ("ERROR_INVALID_PARAMETER", "a value is not allowed"),
    121: ("ERROR_SEM_TIMEOUT", "the device did not answer in time"),
    122: ("ERROR_INSUFFICIENT_BUFFER", "the buffer is too small for the answer"),
    123: ("ERROR_INVALID_NAME", "this cannot be the name of a file"),
    126: ("ERROR_MOD_NOT_FOUND", "the program or a part of it does not exist"),
    161: ("ERROR_BAD_PATHNAME", "the path is none that a file can have"),
    170: ("ERROR_BUSY", "the device is busy"),
    183: ("ERROR_ALREADY_EXISTS", "it exists already"),
    222: ("ERROR_BAD_FILE_TYPE", "this is no file on a disk"),
    234: ("ERROR_MORE_DATA", "there is more data than the buffer holds"),
    259: ("ERROR_NO_MORE_ITEMS", "there are no more entries"),
    433: ("ERROR_NO_SUCH_DEVICE", "the device is gone from the bus"),
    995: ("ERROR_OPERATION_ABORTED", "the request was cancelled"),
    1053: ("ERROR_SERVICE_REQUEST_TIMEOUT", "the service did not answer the control in time"),
    1058: ("ERROR_SERVICE_DISABLED", "the update mode does not allow updates"),
    1060: ("ERROR_SERVICE_DOES_NOT_EXIST", "there is no service of that name"),
    1062: ("ERROR_SERVICE_NOT_ACTIVE", "the service is not running"),
    1117: ("ERROR_IO_DEVICE", "the device reported an input or output error"),
    1167: ("ERROR_DEVICE_NOT_CONNECTED", "the device is not connected"),
    1168: ("ERROR_NOT_FOUND", "it was not found"),
    1170: ("ERROR_SET_NOT_FOUND", "the device does not have the property that was asked for"),
    1314: ("ERROR_PRIVILEGE_NOT_HELD", "the account does not have the right that this needs"),
    1338: ("ERROR_INVALID_SECURITY_DESCR", "the security descriptor is damaged"),
    1460: ("ERROR_TIMEOUT", "the time was up"),
    1617: ("ERROR_DEVICE_REMOVED", "the device was removed"),
    1722: ("RPC_S_SERVER_UNAVAILABLE", "the other process is not there"),
    1726: ("RPC_S_CALL_FAILED", "the other process ended during the call"),
}
_HRESULTS = {
    0x80004001: ("E_NOTIMPL", "this is not implemented"),
    0x80004002: ("E_NOINTERFACE", "there is no such device or interface"),
    0x80004003: ("E_POINTER", "a pointer is missing"),
    0x80004005: (
        "E_FAIL",
        "general failure: a wrong state of the camera, a time-out, or an image that cannot be read",
    ),
    0x80010105: ("RPC_E_SERVERFAULT", "the other process failed during the call"),
    0x80010106: ("RPC_E_CHANGED_MODE", "COM was set up in another way before"),
    0x80010108: ("RPC_E_DISCONNECTED", "the other process has let go of the object"),
    0x80020001: ("DISP_E_UNKNOWNINTERFACE", "the interface is not known"),
    0x80020003: ("DISP_E_MEMBERNOTFOUND", "there is no such method"),
    0x80020005: ("DISP_E_TYPEMISMATCH", "an argument has the wrong type"),
    0x80020006: ("DISP_E_UNKNOWNNAME", "the name is not known"),
    0x8002000B: ("DISP_E_BADINDEX", "there is no such position"),
    0x8002000E: ("DISP_E_BADPARAMCOUNT", "the number of arguments is wrong"),
    0x800401F0: ("CO_E_NOTINITIALIZED", "COM was not set up"),
    0x800401FD: ("CO_E_OBJNOTCONNECTED", "the object is not connected to the other process"),
    0x80040154: ("REGDB_E_CLASSNOTREG", "the toast controller is not registered"),
    0x80070005: ("E_ACCESSDENIED", "access was denied, or the device is no longer connected"),
    0x8007000E: ("E_OUTOFMEMORY", "there is not enough memory"),
    0x80070057: ("E_INVALIDARG", "an argument is not allowed"),
    0x80080005: ("CO_E_SERVER_EXEC_FAILURE", "the toast controller could not be started"),
    0x80630501: ("", "no camera of the family is left in the registry"),
}


def hresult(number: int) -> Code:
    """An HRESULT, signed or not. One that carries a Win32 code has that code's name."""
    unsigned = number & 0xFFFFFFFF
    name, meaning = _HRESULTS.get(unsigned, ("", ""))
    if not meaning and unsigned & _WIN32_MASK == _WIN32_FACILITY:
        name, meaning = _WIN32.get(unsigned & 0xFFFF, ("", ""))
    if unsigned == 0:
        name, meaning = "S_OK", "success"
    return Code(f"0x{unsigned:08X}", name, meaning)


def win32_as_hresult(error: int) -> Code:
    """A Win32 error as the service turns it into an HRESULT: 0 and negative numbers stay what they are."""
    return hresult(_WIN32_FACILITY | (error & 0xFFFF) if error > 0 else error)


# Said behind the uninstall monitor's two commands, which look like errors where they come to nothing.
WHY_NO_SUCH_SERVICE = (
    "without its cameras' driver it stops and deletes the service VeyraCameraDFU, which is not itself,"
    " and here there is none"
)

E_FAIL = hresult(0x80004005)
BAD_LENGTH = win32_as_hresult(24)

SERVICE_STATES = {
    1: "stopped",
    2: "start pending",
    3: "stop pending",
    4: "running",
    5: "continue pending",
    6: "pause pending",
    7: "paused",
}
CONTROLS = {1: "stop", 2: "pause", 3: "continue", 4: "interrogate", 5: "shutdown", 11: "device event"}
DEVICE_EVENTS = {0x8000: "arrival", 0x8001: "removal asked for", 0x8003: "removal pending", 0x8004: "removal"}
INTERFACE_CLASSES = {
    "{24e552d7-6523-47f7-a647-d3465bf1f5ca}": "sensor camera",
    "{e5323777-f976-4f5b-9b55-b94699c46e44}": "video camera",
    "{a5dcbf10-6530-11d2-901f-00c04fb951ed}": "USB device",
}
# The USB DFU 1.1 standard's states and statuses.
DFU_STATES = {
    0: "appIDLE (running its firmware)",
    1: "appDETACH (about to enter DFU mode)",
    2: "dfuIDLE (waiting for a download)",
    3: "dfuDNLOAD-SYNC (has received a block)",
    4: "dfuDNBUSY (writing a block)",
    5: "dfuDNLOAD-IDLE (ready for the next block)",
    6: "dfuMANIFEST-SYNC (has received the whole image)",
    7: "dfuMANIFEST (taking the new firmware into use)",
    8: "dfuMANIFEST-WAIT-RESET (done, about to restart)",
    9: "dfuUPLOAD-IDLE (sending its firmware)",
    10: "dfuERROR (has given up)",
}
DFU_STATUSES = {
    0: "OK",
    1: "errTARGET (the image is not meant for this device)",
    2: "errFILE (the image does not pass a check of the device)",
    3: "errWRITE (the memory cannot be written)",
    4: "errERASE (the memory cannot be erased)",
    5: "errCHECK_ERASED (the memory is not empty after erasing)",
    6: "errPROG (the memory does not take the data)",
    7: "errVERIFY (the memory does not hold what was written)",
    8: "errADDRESS (an address is out of range)",
    9: "errNOTDONE (the end came before the whole image)",
    10: "errFIRMWARE (the device's firmware is damaged)",
    11: "errVENDOR (an error of the maker's own)",
    12: "errUSBR (an unexpected reset on the bus)",
    13: "errPOR (an unexpected restart)",
    14: "errUNKNOWN (something went wrong, the device does not know what)",
    15: "errSTALLEDPKT (the device refused an unexpected request)",
}


def named(names: dict[int, str], number: int | None) -> str:
    """A number's name, or the number itself."""
    return "unknown" if number is None else names.get(number, f"number {number}")


def duration(seconds: float) -> str:
    """A length of time for a person."""
    return f"{seconds:.1f} s" if seconds < 120 else f"{int(seconds // 60)} min {seconds % 60:.0f} s"
