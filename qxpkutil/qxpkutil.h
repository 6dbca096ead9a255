// Umbrella header: the whole public API of qxpkutil, folder by folder from the floor up.
#pragma once

#include "qxpkutil/platform/QXArchive.h"
#include "qxpkutil/platform/QXAtomicFile.h"
#include "qxpkutil/platform/QXFormat.h"
#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/platform/QXObject.h"
#include "qxpkutil/platform/QXParse.h"
#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/platform/QXTypes.h"

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/QXMatrixAlloc.h"
#include "qxpkutil/numeric/QXWaveletAnalysis.h"
#include "qxpkutil/numeric/QXXYData.h"

#include "qxpkutil/fitting/CTriangulationGrid.h"
#include "qxpkutil/fitting/QXNonLinFit.h"

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"

#include "qxpkutil/settings/PeakCalc.h"
#include "qxpkutil/settings/QXPeakDetectSetting.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/settings/QXPersistUtils.h"

#include "qxpkutil/labels/QXUserPkLabels.h"

#include "qxpkutil/detect/PeakDetection.h"

#include "qxpkutil/ui/CChroPkDetectSetupDlg.h"
#include "qxpkutil/ui/QXDataExchange.h"
#include "qxpkutil/ui/QXPeakDetectDlgSetup.h"
#include "qxpkutil/ui/QXSegmentedPeakSetupDlg.h"
