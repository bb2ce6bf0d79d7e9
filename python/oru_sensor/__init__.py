"""Python binding of liboru_device, the host library of the ORU USB spectral
sensor (1024 filter outputs, 0..4095 DN).

    import oru_sensor
    with oru_sensor.connect(virtual=1) as sensors:
        s = sensors[0]
        s.shutter_speed = s.optimal_shutter_speed()
        data = s.read_filter_data(averages=10)
        dark = s.take_dark()              # with the light blocked
        r = s.read(mode="dark", dark=dark)
        r.save("reading.csv")             # CSV or JSON Lines, with every setting

On ctypes and numpy: values are numpy arrays, or array('d') where numpy
cannot be imported.
"""

from ._errors import (OruError, Fail, UndefinedFail, MemoryIsNull, NoDeviceInSystem, FailToConnectDevice,
                      FailToCreateDeviceObj, FailToInitializeDevice, DeviceObjectIsNull, SensorIdIsEmpty,
                      FwRecvTimeout, WrongReply, IllDefinedInput, InitializationRequired)
from ._calibration import Calibration
from ._measure import MODES, MeasurementRefused
from ._reading_file import load_reading, save_readings
from ._reconstruction import ReconstructionError, Spectrum
from ._sensor import AdcSettings, Sensor, connect
from ._stream import FrameStream, Reading

NUM_FILTERS = 1024


def __getattr__(name):
    # The library's version, asked for when first wanted: loading the library
    # at import would fix the choice between USB and virtual sensors.
    if name == "__version__":
        from ._version import library_version
        return library_version()
    raise AttributeError("module %r has no attribute %r" % (__name__, name))


__all__ = [
    "connect", "Calibration", "Sensor", "AdcSettings", "FrameStream", "Reading", "NUM_FILTERS", "MODES",
    "MeasurementRefused", "ReconstructionError", "Spectrum", "load_reading", "save_readings", "OruError", "Fail",
    "UndefinedFail", "MemoryIsNull",
    "NoDeviceInSystem", "FailToConnectDevice", "FailToCreateDeviceObj", "FailToInitializeDevice",
    "DeviceObjectIsNull", "SensorIdIsEmpty", "FwRecvTimeout", "WrongReply", "IllDefinedInput",
    "InitializationRequired",
]
