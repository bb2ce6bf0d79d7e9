"""Python binding of liboru_device, the host library of the ORU USB spectral
sensor (1024 filter outputs, 0..4095 DN).

    import oru_sensor
    with oru_sensor.connect(virtual=1) as sensors:
        s = sensors[0]
        s.shutter_speed = s.optimal_shutter_speed()
        data = s.read_filter_data(averages=10)

On ctypes and numpy: values are numpy arrays, or array('d') where numpy
cannot be imported.
"""

from ._errors import (OruError, Fail, UndefinedFail, MemoryIsNull, NoDeviceInSystem, FailToConnectDevice,
                      FailToCreateDeviceObj, FailToInitializeDevice, DeviceObjectIsNull, SensorIdIsEmpty,
                      FwRecvTimeout, WrongReply, IllDefinedInput, InitializationRequired)
from ._calibration import Calibration
from ._sensor import AdcSettings, Sensor, connect
from ._stream import FrameStream, Reading

NUM_FILTERS = 1024

__all__ = [
    "connect", "Calibration", "Sensor", "AdcSettings", "FrameStream", "Reading", "NUM_FILTERS", "OruError", "Fail", "UndefinedFail", "MemoryIsNull",
    "NoDeviceInSystem", "FailToConnectDevice", "FailToCreateDeviceObj", "FailToInitializeDevice",
    "DeviceObjectIsNull", "SensorIdIsEmpty", "FwRecvTimeout", "WrongReply", "IllDefinedInput",
    "InitializationRequired",
]
