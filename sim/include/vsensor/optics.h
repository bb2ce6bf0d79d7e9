// What the virtual sensors see: each sensor's spectral response (generated
// from its sensor ID) and the scene spectra, on one wavelength grid.
#ifndef VSENSOR_OPTICS_H
#define VSENSOR_OPTICS_H

#include <string>
#include <vector>

namespace vsensor {

struct Identity;

// Wavelength grid of responses and scenes: 350..1000 nm in 1 nm steps.
constexpr int kSpectrumStartNm = 350;
constexpr int kSpectrumPoints = 651;

// "A4486-3-12-40-2": the text the library reports for this identity.
std::string sensor_id_text(const Identity& id);
// The true response of the sensor with this ID: kFilters rows of
// kSpectrumPoints, in DN per ms of exposure per unit radiance at each grid
// wavelength (scene summed over the 1 nm grid), at ADC gain x1. Background
// filters are zero; the sensor-type marker filters are bare silicon where
// the ID's sensor type has a 1 bit (bit k at SENSOR_TYPE_FILTER_INDEX[k]).
std::vector<double> true_response(const std::string& sensor_id);
// Exposure of one frame in ms at master clock 1, without rounding.
double exposure_ms(int shutter_speed);

// A scene spectrum from its text ("led:610,fwhm=18", "blackbody:3000+led:468*0.3",
// "daylight:6500", "file:spectrum.csv", "white:6600K", "halogen", "dark").
// false and a message when the text does not describe one.
bool parse_spectrum(const std::string& text, std::vector<double>* spectrum, std::string* error);

// Switches the sensor at `dev` to the spectral model with this scene; false
// (nothing changed) when the text is not a scene.
bool set_spectral_scene(int dev, const std::string& text, std::string* error = nullptr);

}  // namespace vsensor

#endif
