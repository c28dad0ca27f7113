// Orvanta: a screen-recording engine. Include this header and link with
// `pkg-config --libs orvanta`.
#pragma once

#include "orvanta/audiodevices.h"
#include "orvanta/audiorecorder.h"
#include "orvanta/boxes.h"
#include "orvanta/camera.h"
#include "orvanta/canvas.h"
#include "orvanta/captured.h"
#include "orvanta/displays.h"
#include "orvanta/encoders.h"
#include "orvanta/imagecapture.h"
#include "orvanta/log.h"
#include "orvanta/module.h"
#include "orvanta/mux.h"
#include "orvanta/notify.h"
#include "orvanta/pictures.h"
#include "orvanta/pixels.h"
#include "orvanta/player.h"
#include "orvanta/recorder.h"
#include "orvanta/selection.h"
#include "orvanta/styles.h"
#include "orvanta/types.h"
