#include "host_custom.h"

#include <limits.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "cam_flicker_custom.h"
#include "cam_properties.h"
#include "flicker_zone_mains.h"
#include "host_properties.h"

using NSCam::Utils::Properties::property_get_int32;

namespace flicker_host {

namespace {

const char kInitHzProperty[] = "host.flicker.cust.init_hz";
const char kTimeZoneProperty[] = "persist.sys.timezone";
const char kDefaultLocaltime[] = "/etc/localtime";

struct Localtime {
  std::mutex mutex;
  std::string path = kDefaultLocaltime;  // guarded by mutex
};

// Made once and never destroyed: a worker may still ask for the zone while
// the process runs its exit handlers.
Localtime& localtimeLink() {
  static Localtime* const l = new Localtime;
  return *l;
}

// The zone name in a TZ value or a path into the zone files: ":Asia/Tokyo",
// "/usr/share/zoneinfo/posix/Asia/Tokyo" and "Asia/Tokyo" all name Asia/Tokyo.
std::string zoneName(std::string text) {
  if (!text.empty() && text[0] == ':') {
    text.erase(0, 1);
  }
  const std::string folder = "zoneinfo/";
  const size_t at = text.rfind(folder);
  if (at != std::string::npos) {
    text.erase(0, at + folder.size());
  }
  for (const char* variant : {"posix/", "right/"}) {
    if (text.compare(0, strlen(variant), variant) == 0) {
      text.erase(0, strlen(variant));
    }
  }
  return text;
}

}  // namespace

std::string hostTimeZone() {
  std::string zone;
  if (getProperty(kTimeZoneProperty, &zone) && !zone.empty()) {
    return zone;
  }
  const char* tz = getenv("TZ");
  if (tz != nullptr && tz[0] != '\0') {
    return zoneName(tz);
  }
  std::string path;
  {
    std::lock_guard<std::mutex> lock(localtimeLink().mutex);
    path = localtimeLink().path;
  }
  char target[PATH_MAX];
  const ssize_t length = readlink(path.c_str(), target, sizeof(target) - 1);
  if (length <= 0) {
    return "";
  }
  return zoneName(std::string(target, static_cast<size_t>(length)));
}

int initialFrequencyHz() {
  const int guess = flicker_mains_hz_of_time_zone(hostTimeZone().c_str());
  return property_get_int32(kInitHzProperty, guess != 0 ? guess : kDefaultInitHz);
}

void setLocaltimeLink(const std::string& path) {
  std::lock_guard<std::mutex> lock(localtimeLink().mutex);
  localtimeLink().path = path.empty() ? kDefaultLocaltime : path;
}

}  // namespace flicker_host

extern "C" {

int cust_getMaxAttachNum(void) {
  return property_get_int32("host.flicker.cust.max_attach", flicker_host::kDefaultMaxAttach);
}

int cust_getFlickerDetectFrequency(void) {
  return property_get_int32("host.flicker.cust.detect_freq", flicker_host::kDefaultDetectFrequency);
}

void cust_getFlickerHalPara(int* initHz, int* halPara) {
  if (initHz != nullptr) {
    *initHz = flicker_host::initialFrequencyHz();
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
