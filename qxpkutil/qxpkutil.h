// Umbrella header: the whole public API of qxpkutil.
#pragma once

#include "qxpkutil/platform/QXArchive.h"
#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/platform/QXObject.h"
#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/platform/QXTypes.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/QXMatrixAlloc.h"
#include "qxpkutil/numeric/QXXYData.h"
#include "qxpkutil/numeric/QXWaveletAnalysis.h"
#include "qxpkutil/fitting/CTriangulationGrid.h"
#include "qxpkutil/fitting/QXNonLinFit.h"
#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/settings/QXPeakDetectSetting.h"
#include "qxpkutil/settings/QXPeakTableList.h"
