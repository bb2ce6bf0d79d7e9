// Acquisition conditions of one sensor, as handed to
// oru_device_interface::set_frame_acquisition_conditions. Header-only so that
// applications can fill one without any symbol from the library.
#ifndef ORU_DATA_ACQ_CONDITION_H
#define ORU_DATA_ACQ_CONDITION_H

#include <string>

enum eAcqDataType {
    AcqDataType_Unknown = 0,
    AcqDataType_Raw = 1,
    AcqDataType_Spec = 2,
    AcqDataType_Dark = 3,
    AcqDataType_Ref = 4
};

struct SDataAcqCondition {
    int deviceid;
    int datasize;  // filter values delivered per frame (at most 1024)
    std::string sensortype;
    int adc;
    int gain;
    int ss;  // shutter speed applied when the record is set
    int average;
    int frames;
    bool append;
    eAcqDataType datatype;
    bool validpixelonly;
    bool normalized;
    bool hdr;
    int hdrscale;
    bool useAE;
    bool ignoreOutliers;
    int pixelBinningMode;
    int darkcorrectionMode;

    SDataAcqCondition() { reset(); }

    void reset() {
        deviceid = 0;
        datasize = 1024;
        sensortype = "unknown";
        adc = 132;
        gain = 1;
        ss = 250;
        average = 1;
        frames = 1;
        append = true;
        datatype = AcqDataType_Raw;
        validpixelonly = true;
        normalized = false;
        hdr = false;
        hdrscale = 1;
        useAE = false;
        ignoreOutliers = false;
        pixelBinningMode = 0;
        darkcorrectionMode = 4;
    }
};

#endif  // ORU_DATA_ACQ_CONDITION_H
