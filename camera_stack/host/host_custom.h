// Host implementation of the product customisation functions.
//
// Host defaults, each overridable through a host-only property (see
// host_properties.h for how to set one) so a simulation can play another
// product:
//   cust_getMaxAttachNum            2      host.flicker.cust.max_attach
//   cust_getFlickerDetectFrequency  3      host.flicker.cust.detect_freq
//   cust_getFlickerHalPara initHz   50     host.flicker.cust.init_hz
//   cust_getFlickerHalPara halPara  70000  host.flicker.cust.hal_para
//   cust_getSensorBinningRatio      1      host.flicker.cust.sensor_binning
// The binning ratio is the same for every sensor and mode. Thread-safe.
#pragma once

namespace flicker_host {

constexpr int kDefaultMaxAttach = 2;
constexpr int kDefaultDetectFrequency = 3;
constexpr int kDefaultInitHz = 50;
constexpr int kDefaultHalPara = 70000;
constexpr int kDefaultSensorBinning = 1;

}  // namespace flicker_host
