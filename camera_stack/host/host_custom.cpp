#include "host_custom.h"

#include "cam_flicker_custom.h"
#include "cam_properties.h"

using NSCam::Utils::Properties::property_get_int32;

extern "C" {

int cust_getMaxAttachNum(void) {
  return property_get_int32("host.flicker.cust.max_attach", flicker_host::kDefaultMaxAttach);
}

int cust_getFlickerDetectFrequency(void) {
  return property_get_int32("host.flicker.cust.detect_freq", flicker_host::kDefaultDetectFrequency);
}

void cust_getFlickerHalPara(int* initHz, int* halPara) {
  if (initHz != nullptr) {
    *initHz = property_get_int32("host.flicker.cust.init_hz", flicker_host::kDefaultInitHz);
  }
  if (halPara != nullptr) {
    *halPara = property_get_int32("host.flicker.cust.hal_para", flicker_host::kDefaultHalPara);
  }
}

int cust_getSensorBinningRatio(int /*sensorId*/, int /*sensorMode*/) {
  return property_get_int32("host.flicker.cust.sensor_binning",
                            flicker_host::kDefaultSensorBinning);
}

}  // extern "C"
