// Product customisation of flicker detection. The values are the product's
// tuning; each function is cheap and may be called from any thread.
#pragma once

extern "C" {
// How many sensors may run flicker detection at once.
int cust_getMaxAttachNum(void);
// Frames per detection cycle when exposure control does not drive the cycle.
int cust_getFlickerDetectFrequency(void);
// The initial flicker frequency in Hz (50 or 60) and a HAL parameter.
void cust_getFlickerHalPara(int* initHz, int* halPara);
// The sensor's own binning factor in a sensor mode (1 when it does not bin).
int cust_getSensorBinningRatio(int sensorId, int sensorMode);
}
