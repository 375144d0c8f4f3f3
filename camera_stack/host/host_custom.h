// Host implementation of the product customisation functions.
//
// Host defaults, each overridable through a host-only property (see
// host_properties.h for how to set one) so a simulation can play another
// product:
//   cust_getMaxAttachNum            2      host.flicker.cust.max_attach
//   cust_getFlickerDetectFrequency  3      host.flicker.cust.detect_freq
//   cust_getFlickerHalPara initHz   *      host.flicker.cust.init_hz
//   cust_getFlickerHalPara halPara  70000  host.flicker.cust.hal_para
//   cust_getSensorBinningRatio      1      host.flicker.cust.sensor_binning
// * The initial frequency is guessed from the time zone, as a device's
//   customisation would (flicker_zone_mains.h): the zone named by the
//   property persist.sys.timezone, else by the environment variable TZ, else
//   by the link /etc/localtime; 50 Hz when there is no zone or no guess.
// The binning ratio is the same for every sensor and mode. Thread-safe.
#pragma once

#include <string>

namespace flicker_host {

constexpr int kDefaultMaxAttach = 2;
constexpr int kDefaultDetectFrequency = 3;
constexpr int kDefaultInitHz = 50;  // without a guess from the time zone
constexpr int kDefaultHalPara = 70000;
constexpr int kDefaultSensorBinning = 1;

// The IANA name of the host's time zone from the sources above ("" when none
// names one). A TZ value or link target is read as a zone name: ":Asia/Tokyo"
// and ".../zoneinfo/posix/Asia/Tokyo" both give "Asia/Tokyo".
std::string hostTimeZone();
// What cust_getFlickerHalPara returns as the initial frequency.
int initialFrequencyHz();
// The link read in place of /etc/localtime (for tests); empty restores it.
void setLocaltimeLink(const std::string& path);

}  // namespace flicker_host
