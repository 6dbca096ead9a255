#include "qxpkutil/io/MzmlFixture.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include <unistd.h>
#include <zlib.h>

#include "qxpkutil/io/Base64.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil::testing {

namespace {

std::string CvParam(const char* accession, const char* name, const std::string& value = "",
                    const char* unit = nullptr) {
  std::string s = std::string("<cvParam cvRef=\"MS\" accession=\"") + accession + "\" name=\"" +
                  name + "\" value=\"" + value + "\"";
  if (unit != nullptr) {
    const std::string_view u = unit;
    const char* unitName = u == "UO:0000031" ? "minute" : u == "UO:0000010" ? "second"
                           : u == "MS:1000040" ? "m/z" : "number of detector counts";
    s += std::string(" unitCvRef=\"") + (u.starts_with("UO") ? "UO" : "MS") +
         "\" unitAccession=\"" + unit + "\" unitName=\"" + unitName + "\"";
  }
  return s + "/>\n";
}

std::string BinaryArray(const std::vector<double>& values, const FixtureSpectrum& s,
                        const char* typeAccession, const char* typeName, const char* unit) {
  std::string out = "<binaryDataArray encodedLength=\"0\">\n";
  out +=
      s.bits == 32 ? CvParam("MS:1000521", "32-bit float") : CvParam("MS:1000523", "64-bit float");
  out +=
      s.zlib ? CvParam("MS:1000574", "zlib compression") : CvParam("MS:1000576", "no compression");
  out += CvParam(typeAccession, typeName, "", unit);
  out += "<binary>" + EncodeArray(values, s.bits, s.zlib) + "</binary>\n</binaryDataArray>\n";
  return out;
}

std::string Element(const FixtureSpectrum& s, std::size_t position, bool chromatogram) {
  const std::string id = !s.id.empty()  ? s.id
                         : chromatogram ? "TIC"
                                        : "scan=" + std::to_string(position + 1);
  const std::uint64_t length = s.declared_length.value_or(s.x.size());
  std::string out = std::string(chromatogram ? "<chromatogram" : "<spectrum") + " index=\"" +
                    std::to_string(position) + "\" id=\"" + id + "\" defaultArrayLength=\"" +
                    std::to_string(length) + "\">\n";
  if (chromatogram) {
    out += CvParam("MS:1000235", "total ion current chromatogram");
  } else {
    out += s.ms_level > 1 ? CvParam("MS:1000580", "MSn spectrum")
                          : CvParam("MS:1000579", "MS1 spectrum");
    if (s.ms_level > 0) out += CvParam("MS:1000511", "ms level", std::to_string(s.ms_level));
    if (s.representation) {
      out += s.centroided ? CvParam("MS:1000127", "centroid spectrum")
                          : CvParam("MS:1000128", "profile spectrum");
    }
    if (s.rt_minutes >= 0.0) {
      out += "<scanList count=\"1\">\n" + CvParam("MS:1000795", "no combination") + "<scan>\n" +
             CvParam("MS:1000016", "scan start time", std::to_string(s.rt_minutes), "UO:0000031") +
             "</scan>\n</scanList>\n";
    }
  }
  out += "<binaryDataArrayList count=\"2\">\n";
  out += chromatogram ? BinaryArray(s.x, s, "MS:1000595", "time array",
                                    s.time_in_minutes ? "UO:0000031" : "UO:0000010")
                      : BinaryArray(s.x, s, "MS:1000514", "m/z array", "MS:1000040");
  out += BinaryArray(s.y, s, "MS:1000515", "intensity array", "MS:1000131");
  out += "</binaryDataArrayList>\n";
  out += chromatogram ? "</chromatogram>\n" : "</spectrum>\n";
  return out;
}

}  // namespace

std::string EncodeArray(const std::vector<double>& values, int bits, bool zlib) {
  std::vector<unsigned char> raw;
  for (const double v : values) {
    unsigned char bytes[8];
    if (bits == 32) {
      const float f = static_cast<float>(v);
      std::memcpy(bytes, &f, 4);
    } else {
      std::memcpy(bytes, &v, 8);
    }
    raw.insert(raw.end(), bytes, bytes + bits / 8);
  }
  if (zlib) {
    uLongf size = compressBound(static_cast<uLong>(raw.size()));
    std::vector<unsigned char> packed(size);
    compress(packed.data(), &size, raw.data(), static_cast<uLong>(raw.size()));
    packed.resize(size);
    raw.swap(packed);
  }
  return EncodeBase64(raw.data(), raw.size());
}

FixtureSpectrum ThreePeaks(double first, double spacing, double step, double sigma) {
  const auto n = static_cast<std::size_t>(std::llround(3.0 * spacing / step)) + 1;
  const auto signal = qxpkutil::testing::MakeSignal(n, first - spacing / 2.0, step,
                                                    {{first, 1000.0, sigma},
                                                     {first + spacing, 3000.0, sigma},
                                                     {first + 2 * spacing, 2000.0, sigma}},
                                                    {.baseline = 20.0, .noiseSigma = 1.0});
  FixtureSpectrum f;
  f.x = signal.x;
  f.y = signal.y;
  return f;
}

std::string MakeMzml(const std::vector<FixtureSpectrum>& spectra,
                     const std::vector<FixtureSpectrum>& chromatograms, bool indexed) {
  std::string body =
      "<mzML xmlns=\"http://psi.hupo.org/ms/mzml\" version=\"1.1.0\">\n"
      "<cvList count=\"2\"><cv id=\"MS\" fullName=\"PSI-MS\" URI=\"psi-ms.obo\"/>"
      "<cv id=\"UO\" fullName=\"Unit Ontology\" URI=\"unit.obo\"/></cvList>\n"
      "<fileDescription><fileContent>" +
      CvParam("MS:1000579", "MS1 spectrum") +
      "</fileContent></fileDescription>\n"
      "<softwareList count=\"1\"><software id=\"fixture\" version=\"1\">" +
      CvParam("MS:1000799", "custom unreleased software tool", "fixture") +
      "</software></softwareList>\n"
      "<instrumentConfigurationList count=\"1\"><instrumentConfiguration id=\"IC\">" +
      CvParam("MS:1000031", "instrument model") +
      "</instrumentConfiguration></instrumentConfigurationList>\n"
      "<dataProcessingList count=\"1\"><dataProcessing id=\"dp\"><processingMethod order=\"1\" "
      "softwareRef=\"fixture\">" +
      CvParam("MS:1000544", "Conversion to mzML") +
      "</processingMethod></dataProcessing></dataProcessingList>\n"
      "<run id=\"run\" defaultInstrumentConfigurationRef=\"IC\">\n";
  if (!spectra.empty()) {
    body += "<spectrumList count=\"" + std::to_string(spectra.size()) +
            "\" defaultDataProcessingRef=\"dp\">\n";
    for (std::size_t i = 0; i < spectra.size(); ++i) body += Element(spectra[i], i, false);
    body += "</spectrumList>\n";
  }
  if (!chromatograms.empty()) {
    body += "<chromatogramList count=\"" + std::to_string(chromatograms.size()) +
            "\" defaultDataProcessingRef=\"dp\">\n";
    for (std::size_t i = 0; i < chromatograms.size(); ++i)
      body += Element(chromatograms[i], i, true);
    body += "</chromatogramList>\n";
  }
  body += "</run>\n</mzML>\n";
  const std::string head = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
  if (!indexed) return head + body;
  return head + "<indexedmzML xmlns=\"http://psi.hupo.org/ms/mzml\">\n" + body +
         "<indexList count=\"1\"><index name=\"spectrum\"><offset idRef=\"scan=1\">0</offset>"
         "</index></indexList>\n<indexListOffset>0</indexListOffset>\n"
         "<fileChecksum>0</fileChecksum>\n</indexedmzML>\n";
}

std::vector<Peak> PeaksAt(const std::vector<double>& apexX, const std::vector<double>& apexY) {
  std::vector<Peak> peaks(apexX.size());
  for (std::size_t i = 0; i < apexX.size(); ++i) {
    Peak& p = peaks[i];
    p.apex_index = static_cast<std::int32_t>(10 * i + 5);
    p.left_index = p.apex_index - 1;
    p.right_index = p.apex_index + 1;
    p.apex_x = apexX[i];
    p.apex_y = apexY[i];
    p.centroid_x = apexX[i];
    p.left_x = apexX[i] - 0.1;
    p.right_x = apexX[i] + 0.1;
    p.area = 2.0 * apexY[i];
  }
  return peaks;
}

std::string WriteTempFile(const std::string& name, const std::string& text) {
  // One folder per process, removed when the process ends.
  struct Folder {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("qxpeak_test_" + std::to_string(::getpid()));
    Folder() { std::filesystem::create_directories(path); }
    ~Folder() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static const Folder folder;
  const std::string path = (folder.path / name).string();
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

}  // namespace qxpkutil::testing
