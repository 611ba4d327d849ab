// The text recogniser on Tesseract 5 (LSTM engine), images through Leptonica. Built into the
// ocr module, so only vision-ocr loads these libraries.
#include <dirent.h>
#include <sched.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <leptonica/allheaders.h>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

#include "base/error.h"
#include "base/silenced_stderr.h"
#include "ocr/dark_regions.h"
#include "ocr/decode_budget.h"
#include "ocr/languages.h"
#include "ocr/line_direction.h"
#include "ocr/line_quad.h"
#include "ocr/page_split.h"
#include "ocr/reading_shape.h"
#include "ocr/tesseract/png_gray_reader.h"
#include "ocr/text_recognizer.h"

namespace tallowbrook::VisionOCR {
namespace {

// Larger images are scaled down before recognition, which bounds Tesseract's memory; text on
// such pages is still several times the size the recogniser needs.
constexpr int64_t kMaxRecognitionPixels = 36'000'000;
// At most this many languages are tried at once when detecting the language.
constexpr size_t kMaxDetectedLanguages = 3;
// Upright pages read with a mean word confidence far above this; turned ones far below.
constexpr int kUprightConfidence = 60;
// A reading read with kUprightConfidence whose word shapes score this much (see wordShapeShare)
// is plausible upright text, and is never turned.
constexpr double kPlausibleShape = 0.5;
// A turned reading replaces the upright one only when its word shapes score this much more,
// or when they score no worse (within kShapeTolerance) and its confidence is this much higher.
constexpr double kClearlyBetterShape = 0.25;
constexpr double kShapeTolerance = 0.05;
constexpr int kClearlyBetterConfidence = 20;
// Orientation detection decides only on pages with at least this many letters and digits.
constexpr int kOsdCharacters = 60;
// Pixels that differ this much from the background are content.
constexpr int kContentContrast = 48;
// Pages of at least this many pixels are worth cutting in two for two threads.
constexpr int64_t kSplitPixels = 2'000'000;
// Specks smaller than this (pixels each way) are noise, not content.
constexpr int kSpeckSize = 3;

struct PixDeleter {
  void operator()(Pix* pix) const { pixDestroy(&pix); }
};
using PixPtr = std::unique_ptr<Pix, PixDeleter>;

bool isDirectory(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isFile(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// Where the language data lives: TESSDATA_PREFIX (the folder itself or its tessdata/), else
// the folder Debian's packages install into.
std::string tessdataDirectory() {
  if (const char* prefix = std::getenv("TESSDATA_PREFIX"); prefix != nullptr && *prefix) {
    std::string dir(prefix);
    if (dir.back() != '/') dir += '/';
    if (isDirectory(dir + "tessdata") && !isFile(dir + "eng.traineddata")) dir += "tessdata/";
    return dir;
  }
  return "/usr/share/tesseract-ocr/5/tessdata/";
}

std::vector<std::string> installedLanguages(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* folder = opendir(dir.c_str())) {
    const std::string suffix = ".traineddata";
    while (dirent* entry = readdir(folder)) {
      std::string name = entry->d_name;
      if (name.size() > suffix.size() &&
          name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
        name.resize(name.size() - suffix.size());
        if (name != "osd" && name != "equ") names.push_back(name);
      }
    }
    closedir(folder);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

// Tesseract images are 1, 8 or 32 bits per pixel without a colour map.
PixPtr normalizedDepth(Pix* source) {
  PixPtr pix(pixRemoveColormap(source, REMOVE_CMAP_BASED_ON_SRC));
  if (!pix) return nullptr;
  int depth = pixGetDepth(pix.get());
  if (depth == 1 || depth == 8 || depth == 32) return pix;
  if (depth == 16) return PixPtr(pixConvert16To8(pix.get(), L_MS_BYTE));
  if (depth == 24) return PixPtr(pixConvert24To32(pix.get()));
  return PixPtr(pixConvertTo8(pix.get(), 0));
}

std::string trimmed(const char* text) {
  std::string line = text != nullptr ? text : "";
  while (!line.empty() && (line.back() == '\n' || line.back() == ' ' || line.back() == '\r')) {
    line.pop_back();
  }
  size_t start = line.find_first_not_of(' ');
  return start == std::string::npos ? std::string() : line.substr(start);
}

// The page's turn and writing script as orientation detection sees them.
struct PageOrientation {
  int degrees = 0;     // the page's clockwise turn: 0, 90, 180 or 270
  std::string script;  // "Latin", "Cyrillic", "Han", ...
};

// Orientation detection of `pix`; nothing when it cannot tell.
std::optional<PageOrientation> detectOrientation(const std::string& dataDir, Pix* pix) {
  std::vector<std::string> names = {"debug_file"};
  std::vector<std::string> values = {"/dev/null"};
  tesseract::TessBaseAPI osd;
  if (osd.Init(dataDir.c_str(), "osd", tesseract::OEM_TESSERACT_ONLY, nullptr, 0, &names, &values,
               false) != 0) {
    return std::nullopt;
  }
  osd.SetPageSegMode(tesseract::PSM_OSD_ONLY);
  osd.SetImage(pix);
  if (osd.GetSourceYResolution() < 70) osd.SetSourceResolution(300);
  int degrees = 0;
  float orientationConfidence = 0, scriptConfidence = 0;
  const char* script = nullptr;
  if (!osd.DetectOrientationScript(&degrees, &orientationConfidence, &script, &scriptConfidence)) {
    return std::nullopt;
  }
  return PageOrientation{degrees, script != nullptr ? script : ""};
}

// What a page's lines look like, from its content alone (see line_direction.h).
struct PageLines {
  LineDirection direction = LineDirection::unknown;
  // Which side of the lines the ascenders lie on (see ascendersFirst): before the cores in the
  // direction across the lines (above upright lines, left of lines turned counterclockwise).
  std::optional<bool> ascendersFirst;

  // The quarter turns that would right the page as its lines look, when they tell: 2 for lines
  // across upside down, 1 for lines turned counterclockwise; nothing for upright lines and for
  // lines turned clockwise, which the recogniser turns right itself.
  std::optional<int> turns() const {
    if (!ascendersFirst) return std::nullopt;
    if (direction == LineDirection::across && !*ascendersFirst) return 2;
    if (direction == LineDirection::down && *ascendersFirst) return 1;
    return std::nullopt;
  }
};

// A dark panel of a lighter page, inverted, read on its own.
struct Panel {
  PixelBox box;  // in the pixels of the prepared page
  PixPtr pix;
};

class TesseractRecognizer final : public TextRecognizer {
 public:
  TesseractRecognizer() { setMsgSeverity(L_SEVERITY_NONE); }

  bool open(const std::string& path, ImageSize* size) override {
    SilencedStderr quiet;  // libpng and libtiff report damaged files on standard error
    if (!isFile(path)) return false;
    l_int32 format = 0, width = 0, height = 0, bps = 0, spp = 0, colormap = 0;
    if (pixReadHeader(path.c_str(), &format, &width, &height, &bps, &spp, &colormap) != 0 ||
        width <= 0 || height <= 0) {
      return false;
    }
    size->width = width;
    size->height = height;
    size_ = *size;
    decodeBytes_ = decodeBytes({width, height, bps, spp, colormap != 0});
    if (decodeBytes_ > kMaxDecodeBytes) return true;  // refused when recognising
    Pix* decoded = nullptr;
    if (format == IFF_PNG) {
      // A PNG of grey pixels is decoded to grey whatever its layout. A coloured one is read in
      // colour, which Tesseract reads differently from its grey, unless its grey shows a blank
      // page: that grey is the one a blank page is found in, and costs a quarter of the memory.
      // The colour image is made from the pixels decoded for the grey (the grey is freed
      // first), as Leptonica's reader would make it.
      GrayPng png = readGrayPng(path);
      if (png.pix != nullptr && !png.exact && !plainlyBlank(png.pix)) {
        pixDestroy(&png.pix);
        png.pix = colourImage(png);
      }
      decoded = png.pix;
    }
    if (decoded == nullptr) decoded = pixRead(path.c_str());
    if (decoded == nullptr) return false;
    image_.reset(decoded);
    size->width = pixGetWidth(decoded);
    size->height = pixGetHeight(decoded);
    size_ = *size;
    return true;
  }

  std::vector<DocumentObservation> recognize(const Settings& settings) override {
    std::vector<DocumentObservation> observations;
    std::string error;
    if (!recognizeInto(settings, &observations, &error)) throw Error(error);
    return observations;
  }

 private:
  // The recognition itself: false with the user's sentence in `*error` on failure.
  bool recognizeInto(const Settings& settings, std::vector<DocumentObservation>* observations,
                     std::string* error) {
    SilencedStderr quiet;
    if (!image_) {
      *error = "the image is too large to decode safely (" + std::to_string(size_.width) + " x " +
               std::to_string(size_.height) + " pixels would take " +
               std::to_string(decodeBytes_ >> 20) + " MB; at most " +
               std::to_string(kMaxDecodeBytes >> 20) + " MB)";
      return false;
    }
    ImageFrame frame;
    bool blank = false;
    std::vector<Panel> panels;
    PageLines lines;
    PixPtr pix = prepared(&frame, &blank, &panels, &lines);
    if (blank) return true;  // nothing to read: no recognition data is even loaded
    if (!pix) {
      *error = "could not prepare the image for recognition";
      return false;
    }

    const std::string dataDir = tessdataDirectory();
    const std::vector<std::string> installed = installedLanguages(dataDir);
    const bool haveOsd = isFile(dataDir + "osd.traineddata");
    std::optional<PageOrientation> detected;
    if (settings.automaticallyDetectLanguage && haveOsd) {
      detected = detectOrientation(dataDir, pix.get());
    }
    std::vector<std::string> languages;
    if (!chooseLanguages(settings, installed, detected ? detected->script : "", &languages,
                         error)) {
      return false;
    }

    std::string joined;
    for (const auto& language : languages) joined += (joined.empty() ? "" : "+") + language;
    tesseract::TessBaseAPI api;
    if (!initEngine(api, dataDir, joined, settings, error)) return false;

    // A page whose lines look turned counterclockwise or upside down, or run down it with no
    // telling which way, may lie turned: orientation detection tells, and when its turn agrees
    // with the lines, the page is read turned first. Pages turned clockwise the recogniser reads
    // right as they are, but on one thread: a large one is turned too when it can then be read
    // in halves. The turned reading stands when it is plausible upright text with enough
    // letters for the detection to count, and the page is read once; otherwise it is kept for
    // the comparisons below.
    std::optional<Reading> early;
    PixPtr earlyPix;
    // The second engine, for the second part of a large page read in two halves; loaded when
    // first needed.
    tesseract::TessBaseAPI second;
    bool secondReady = false;
    auto readInHalves = [&](const std::vector<Panel>& parts, int turns, Reading* reading) {
      return readHalves(api, second, &secondReady, parts, turns, dataDir, joined, settings, reading,
                        error);
    };
    // Ascenders tell only in the scripts that have them.
    const bool ascenders = std::all_of(languages.begin(), languages.end(), [](const auto& data) {
      const std::string script = languageScript(data);
      return script == "Latin" || script == "Cyrillic" || script == "Greek";
    });
    if (!ascenders) lines.ascendersFirst.reset();
    const std::optional<int> seen = lines.turns();
    // (A page turned clockwise that can be cut as it lies is read in halves as it lies.)
    bool clockwise = lines.direction == LineDirection::down && lines.ascendersFirst &&
                     !*lines.ascendersFirst && availableCores() >= 2;
    if (clockwise) {
      const PixPtr reduced = reducedMask(pix.get());
      clockwise = reduced && !reducedSplit(reduced.get(), 0) && reducedSplit(reduced.get(), 3);
    }
    const std::optional<int> expected = clockwise ? std::optional<int>(3) : seen;
    if (haveOsd &&
        (expected || (lines.direction == LineDirection::down && !lines.ascendersFirst))) {
      if (!detected) detected = detectOrientation(dataDir, pix.get());
      const int turns = detected ? (4 - detected->degrees / 90) % 4 : 0;
      const bool agrees = expected ? turns == *expected : turns % 2 == 1;
      if (turns != 0 && agrees) {
        earlyPix.reset(pixRotateOrth(pix.get(), turns));
        // A large turned page is read in halves like an upright one, cut as it reads upright.
        const std::vector<Panel> parts =
            earlyPix && availableCores() >= 2 ? halves(earlyPix.get()) : std::vector<Panel>();
        Reading reading;
        if (clockwise && parts.size() != 2) earlyPix.reset();  // read as it is, below
        if (parts.size() == 2) {
          if (!readInHalves(parts, turns, &reading)) return false;
        } else if (earlyPix && !read(api, earlyPix.get(), turns, &reading, error)) {
          return false;
        }
        if (earlyPix && plausibleUpright(reading) && reading.characters >= kOsdCharacters) {
          frame.quarterTurns = turns;
          if (parts.size() == 2) {
            collect(api, turnedPartFrame(frame, parts[0].box), settings.minimumTextHeightFraction,
                    observations);
            collect(second, turnedPartFrame(frame, parts[1].box),
                    settings.minimumTextHeightFraction, observations);
          } else {
            collect(api, frame, settings.minimumTextHeightFraction, observations);
          }
          return readPanels(api, frame, panels, settings, observations, error);
        }
        if (earlyPix) early = reading;  // kept for the comparisons below
      }
    }

    // A large page with a blank band across it is read as two halves on two threads, each
    // with an engine of its own (the second loads while the first reads). That reading stands
    // for the page as it is upright in what follows, and is the result unless a turn wins.
    std::vector<Panel> parts = availableCores() >= 2 ? halves(pix.get()) : std::vector<Panel>();
    bool halvesRead = false;
    Reading upright;
    if (parts.size() == 2) {
      if (!readInHalves(parts, 0, &upright)) return false;
      halvesRead = true;
    }

    // Most images are upright and read well as they are. Turning is tried only for a reading
    // that is not plausible upright (confident and word-shaped), and a turned reading wins only
    // when it is clearly better, not merely a little more confident: short upright lines of
    // names or codes read with modest confidence, and text upside down can read as confident
    // nonsense. Orientation detection decides where there is enough text for it.
    if (!halvesRead && !read(api, pix.get(), 0, &upright, error)) return false;
    if (upright.characters == 0) {
      // Page segmentation found nothing: a lone character, number or label. Sparse text
      // segmentation finds what stands alone; a single line is the last resort.
      halvesRead = false;
      for (auto mode : {tesseract::PSM_SPARSE_TEXT, tesseract::PSM_SINGLE_LINE}) {
        api.SetPageSegMode(mode);
        if (!read(api, pix.get(), 0, &upright, error)) return false;
        if (upright.characters > 0) break;
      }
    }
    if (upright.characters == 0)
      return readPanels(api, frame, panels, settings, observations, error);
    Reading best = upright;
    // What the engine holds the reading of.
    const Pix* recognized = halvesRead ? parts[0].pix.get() : pix.get();
    PixPtr turned;
    auto tryTurn = [&](int turns, bool trusted) -> bool {
      if (turns == best.turns || turns == upright.turns) return true;
      PixPtr image;
      Reading reading;
      if (early && early->turns == turns) {
        image.reset(pixClone(earlyPix.get()));  // read already
        reading = *early;
      } else {
        image.reset(pixRotateOrth(pix.get(), turns));
        if (!image || !read(api, image.get(), turns, &reading, error)) return false;
        recognized = image.get();
      }
      // Orientation detection's choice needs only to read no worse; a guess needs to read
      // clearly better, in the shapes of its words or by far in confidence.
      const bool notWorse = reading.shape + kShapeTolerance >= best.shape;
      const bool better =
          trusted
              ? notWorse && reading.confidence > best.confidence
              : (reading.shape >= best.shape + kClearlyBetterShape &&
                 reading.confidence > best.confidence) ||
                    (notWorse && reading.confidence >= best.confidence + kClearlyBetterConfidence);
      if (better) {
        best = reading;
        turned = std::move(image);
      }
      return true;
    };
    if (!plausibleUpright(upright)) {
      if (haveOsd && upright.characters >= kOsdCharacters) {
        if (!detected) detected = detectOrientation(dataDir, pix.get());
        if (detected && detected->degrees != 0 &&
            !tryTurn((4 - detected->degrees / 90) % 4, true)) {
          return false;
        }
      }
      // Tesseract itself turns lines that run up or down the page, one way or the other; half
      // a turn more rights those it turned the wrong way, and pages upside down.
      if (!plausibleUpright(best) && !tryTurn(2, false)) return false;
    }
    if (best.turns == 0 && halvesRead) {
      // The halves' reading stands: the first engine may hold a turned reading by now.
      if (recognized != parts[0].pix.get() && !recognizeImage(api, parts[0].pix.get(), error)) {
        return false;
      }
      collect(api, partFrame(frame, parts[0].box), settings.minimumTextHeightFraction,
              observations);
      collect(second, partFrame(frame, parts[1].box), settings.minimumTextHeightFraction,
              observations);
      return readPanels(api, frame, panels, settings, observations, error);
    }
    frame.quarterTurns = best.turns;
    // Leave the engine holding the best reading.
    const Pix* bestPix = best.turns == 0 ? pix.get() : turned.get();
    if (recognized != bestPix && !recognizeImage(api, const_cast<Pix*>(bestPix), error)) {
      return false;
    }
    collect(api, frame, settings.minimumTextHeightFraction, observations);
    return readPanels(api, frame, panels, settings, observations, error);
  }

  // What one recognition of the image turned by `turns` quarter turns gave.
  struct Reading {
    int turns = 0;
    int confidence = 0;  // mean word confidence, 0-100
    double shape = 0;    // wordShapeShare of the text
    int characters = 0;  // letters and digits
    std::string text;
  };

  // Loads the recognition data for `languages` ("eng+deu") into `api`; fails with a sentence.
  static bool initEngine(tesseract::TessBaseAPI& api, const std::string& dataDir,
                         const std::string& languages, const Settings& settings,
                         std::string* error) {
    // Language correction is the dictionaries; without it the recogniser reads characters only.
    const char* dictionaries = settings.useLanguageCorrection ? "1" : "0";
    std::vector<std::string> names = {"debug_file", "load_system_dawg", "load_freq_dawg"};
    std::vector<std::string> values = {"/dev/null", dictionaries, dictionaries};
    if (api.Init(dataDir.c_str(), languages.c_str(), tesseract::OEM_LSTM_ONLY, nullptr, 0, &names,
                 &values, false) != 0) {
      *error = "could not load the recognition data for " + languages + " from " + dataDir;
      return false;
    }
    api.SetPageSegMode(tesseract::PSM_AUTO);
    // Light text on dark backgrounds was inverted before recognition, region by region, so
    // Tesseract's own second pass over every doubtful word in inverted form is not needed.
    api.SetVariable("tessedit_do_invert", "0");
    return true;
  }

  // Reads the two `parts` of one image turned by `turns` on two threads, the first with `api`
  // and the second with `second` (loaded first, the first time: `*secondReady`), and gives
  // their combined reading. Without a thread to be had, the second part is read after the
  // first. False with the user's sentence in `*error` on failure. Standard error must stay
  // silenced (it is process-wide) until it returns.
  static bool readHalves(tesseract::TessBaseAPI& api, tesseract::TessBaseAPI& second,
                         bool* secondReady, const std::vector<Panel>& parts, int turns,
                         const std::string& dataDir, const std::string& languages,
                         const Settings& settings, Reading* reading, std::string* error) {
    Reading firstReading, secondReading;
    bool secondRead = false;
    std::string secondError;
    auto readSecond = [&] {
      if (!*secondReady) {
        *secondReady = initEngine(second, dataDir, languages, settings, &secondError);
      }
      secondRead =
          *secondReady && read(second, parts[1].pix.get(), 0, &secondReading, &secondError);
    };
    std::thread worker;
    try {
      worker = std::thread(readSecond);
    } catch (const std::system_error&) {
      readSecond();
    }
    const bool firstRead = read(api, parts[0].pix.get(), 0, &firstReading, error);
    if (worker.joinable()) worker.join();
    if (!firstRead) return false;
    if (!secondRead) {
      *error = secondError;
      return false;
    }
    *reading = combined(firstReading, secondReading);
    reading->turns = turns;
    return true;
  }

  // The processors this process may run on.
  static int availableCores() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0) return 1;
    return CPU_COUNT(&set);
  }

  // Two parts' readings as one: confidence weighed by characters, shapes of all the words.
  static Reading combined(const Reading& a, const Reading& b) {
    Reading both;
    both.text = a.text + "\n" + b.text;
    both.characters = a.characters + b.characters;
    both.confidence =
        both.characters == 0
            ? 0
            : (a.confidence * a.characters + b.confidence * b.characters) / both.characters;
    both.shape = wordShapeShare(both.text);
    return both;
  }

  // The frame of the part `box` (in prepared pixels, unturned) of the page framed by `page`.
  static ImageFrame partFrame(const ImageFrame& page, const PixelBox& box) {
    ImageFrame frame = page;
    frame.quarterTurns = 0;
    frame.left += box.left / page.scale;
    frame.top += box.top / page.scale;
    frame.width = (box.right - box.left) / page.scale;
    frame.height = (box.bottom - box.top) / page.scale;
    return frame;
  }

  // Reads each panel as an image of its own, upright, after the page: its lines follow the
  // page's, in blocks of their own.
  static bool readPanels(tesseract::TessBaseAPI& api, const ImageFrame& page,
                         const std::vector<Panel>& panels, const Settings& settings,
                         std::vector<DocumentObservation>* observations, std::string* error) {
    for (const Panel& panel : panels) {
      api.SetPageSegMode(tesseract::PSM_AUTO);
      if (!recognizeImage(api, panel.pix.get(), error)) return false;
      collect(api, partFrame(page, panel.box), settings.minimumTextHeightFraction, observations);
    }
    return true;
  }

  static bool plausibleUpright(const Reading& reading) {
    return reading.confidence >= kUprightConfidence && reading.shape >= kPlausibleShape;
  }

  static bool read(tesseract::TessBaseAPI& api, Pix* pix, int turns, Reading* reading,
                   std::string* error) {
    if (!recognizeImage(api, pix, error)) return false;
    std::unique_ptr<char[]> text(api.GetUTF8Text());
    reading->text = text ? text.get() : "";
    const std::string& utf8 = reading->text;
    reading->turns = turns;
    reading->confidence = api.MeanTextConf();
    reading->shape = wordShapeShare(utf8);
    reading->characters = 0;
    for (unsigned char c : utf8) {
      reading->characters += std::isalnum(c) || (c >= 0xC0) ? 1 : 0;  // lead bytes only
    }
    return true;
  }

  static bool recognizeImage(tesseract::TessBaseAPI& api, Pix* pix, std::string* error) {
    api.SetImage(pix);
    if (api.GetSourceYResolution() < 70) api.SetSourceResolution(300);
    if (api.Recognize(nullptr) != 0) {
      *error = "the recogniser could not read the image";
      return false;
    }
    return true;
  }

  // The decoded image at a depth Tesseract takes, cropped to its content, scaled down when
  // very large, with light-on-dark regions inverted; `frame` says how it relates to the
  // decoded image. Sets `*blank` (and returns nothing) when the image holds no content.
  PixPtr prepared(ImageFrame* frame, bool* blank, std::vector<Panel>* panels,
                  PageLines* lines) const {
    PixPtr pix = normalizedDepth(image_.get());
    if (!pix) return nullptr;
    const int width = pixGetWidth(pix.get()), height = pixGetHeight(pix.get());
    *frame = ImageFrame::whole(width, height);

    // Blank margins cost layout analysis time in proportion to their area and hold no text.
    if (plainlyBlank(pix.get())) {
      *blank = true;
      return nullptr;
    }
    auto content = contentBox(pix.get(), lines);
    if (!content) {
      *blank = true;
      return nullptr;
    }
    const int margin = std::max(24, std::max(width, height) / 50);
    int left = std::max(0, content->left - margin), top = std::max(0, content->top - margin);
    int right = std::min(width, content->right + margin);
    int bottom = std::min(height, content->bottom + margin);
    if (int64_t(right - left) * (bottom - top) < int64_t(width) * height * 9 / 10) {
      Box* box = boxCreate(left, top, right - left, bottom - top);
      PixPtr cropped(pixClipRectangle(pix.get(), box, nullptr));
      boxDestroy(&box);
      if (cropped) {
        pix = std::move(cropped);
        frame->left = left, frame->top = top;
        frame->width = right - left, frame->height = bottom - top;
      }
    }

    int64_t pixels = int64_t(pixGetWidth(pix.get())) * pixGetHeight(pix.get());
    if (pixels > kMaxRecognitionPixels) {
      float scale = float(std::sqrt(double(kMaxRecognitionPixels) / double(pixels)));
      pix.reset(pixScale(pix.get(), scale, scale));
      if (!pix) return nullptr;
      frame->scale = double(pixGetWidth(pix.get())) / frame->width;
    }
    return withDarkRegionsInverted(std::move(pix), panels);
  }

  // A grey image to find dark regions in, halved each way when `pix` is large (the regions are
  // tiles of tens of pixels; an edge is then found within `*factor` pixels).
  static PixPtr analysisGray(Pix* pix, int* factor) {
    const bool large = int64_t(pixGetWidth(pix)) * pixGetHeight(pix) > kSplitPixels;
    *factor = large ? 2 : 1;
    if (pixGetDepth(pix) == 1) return PixPtr(large ? pixScaleToGray2(pix) : pixConvertTo8(pix, 0));
    PixPtr gray(pixGetDepth(pix) == 8    ? pixClone(pix)
                : pixGetDepth(pix) == 32 ? pixConvertRGBToLuminance(pix)
                                         : pixConvertTo8(pix, 0));
    if (!gray || !large) return gray;
    return PixPtr(pixScaleAreaMap2(gray.get()));
  }

  // The pixels of an 8-bit `pix`, row after row, one byte each.
  static std::vector<uint8_t> grayBytes(Pix* pix) {
    const int width = pixGetWidth(pix), height = pixGetHeight(pix), wpl = pixGetWpl(pix);
    const l_uint32* data = pixGetData(pix);
    std::vector<uint8_t> bytes(size_t(width) * height);
    for (int y = 0; y < height; ++y) {
      const l_uint32* line = data + size_t(y) * wpl;
      uint8_t* out = bytes.data() + size_t(y) * width;
      // Leptonica keeps four pixels in a 32-bit word, the first in its most significant byte.
      const int words = width / 4;
      for (int i = 0; i < words; ++i) {
        uint32_t word = line[i];
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        word = __builtin_bswap32(word);
#endif
        std::memcpy(out + 4 * size_t(i), &word, 4);
      }
      for (int x = 4 * words; x < width; ++x) out[x] = uint8_t(GET_DATA_BYTE(line, x));
    }
    return bytes;
  }

  // `pix` with its regions of light text on dark ground inverted (in grey), or `pix` itself
  // when it has none. Dark panels with plain ground within a lighter page are cut out, left
  // white in the page, and returned inverted in `panels` to be read on their own: read with the
  // page, their lines would join those beside them. Costs one pass over the pixels, plus a grey
  // copy when something is inverted.
  static PixPtr withDarkRegionsInverted(PixPtr pix, std::vector<Panel>* panels) {
    int factor = 1;
    std::vector<DarkRegion> regions;
    {
      PixPtr small = analysisGray(pix.get(), &factor);
      if (!small) return pix;
      const int w = pixGetWidth(small.get()), h = pixGetHeight(small.get());
      std::vector<uint8_t> rows = grayBytes(small.get());
      regions = darkRegions({rows.data(), w, h, size_t(w)});
    }
    if (regions.empty()) return pix;
    PixPtr gray(pixGetDepth(pix.get()) == 8 ? pixClone(pix.get()) : pixConvertTo8(pix.get(), 0));
    if (!gray) return pix;
    const int width = pixGetWidth(gray.get()), height = pixGetHeight(gray.get());
    for (DarkRegion& region : regions) {
      PixelBox& r = region.box;
      r = {r.left * factor, r.top * factor, std::min(width, r.right * factor),
           std::min(height, r.bottom * factor)};
      // A region that reached the analysed image's edge reaches the page's.
      if (r.right >= width - factor) r.right = width;
      if (r.bottom >= height - factor) r.bottom = height;
    }
    PixPtr inverted(pixCopy(nullptr, gray.get()));
    if (!inverted) return pix;
    for (const DarkRegion& region : regions) {
      const PixelBox& r = region.box;
      const int w = r.right - r.left, h = r.bottom - r.top;
      pixRasterop(inverted.get(), r.left, r.top, w, h, PIX_NOT(PIX_DST), nullptr, 0, 0);
      if (!region.plainGround || (w == width && h == height)) continue;
      Box* box = boxCreate(r.left, r.top, w, h);
      PixPtr panel(pixClipRectangle(inverted.get(), box, nullptr));
      boxDestroy(&box);
      if (!panel) continue;
      pixRasterop(inverted.get(), r.left, r.top, w, h, PIX_SET, nullptr, 0, 0);
      panels->push_back({r, std::move(panel)});
    }
    return inverted;
  }

  // The most common grey of an 8-bit `pix`: every pixel of a small image, about a million of a
  // large one.
  static int background(Pix* gray) {
    const int width = pixGetWidth(gray), height = pixGetHeight(gray);
    const int factor = std::max(1, int(std::sqrt(double(width) * height / 1e6)));
    NUMA* histogram = pixGetGrayHistogram(gray, factor);
    if (histogram == nullptr) return 255;
    l_float32 peak = 0;
    l_int32 level = 255;
    numaGetMax(histogram, &peak, &level);
    numaDestroy(&histogram);
    return level;
  }

  // Whether `pix` is one flat level throughout: one bit images all white or all black, grey
  // ones without a pixel kContentContrast from the background. One quick pass over the bytes,
  // for the common case of an empty page; other images are left to contentBox.
  static bool plainlyBlank(Pix* pix) {
    const int width = pixGetWidth(pix), height = pixGetHeight(pix);
    if (pixGetDepth(pix) == 1) {
      l_int32 dark = 0;
      pixCountPixels(pix, &dark, nullptr);
      return dark == 0 || int64_t(dark) == int64_t(width) * height;
    }
    if (pixGetDepth(pix) != 8 || pixGetColormap(pix) != nullptr) return false;
    const int level = background(pix);
    const uint8_t low = uint8_t(std::max(0, level - kContentContrast));
    const uint8_t high = uint8_t(std::min(255, level + kContentContrast));
    const l_uint32* data = pixGetData(pix);
    const int wpl = pixGetWpl(pix), words = width / 4;
    for (int y = 0; y < height; ++y) {
      const l_uint32* line = data + size_t(y) * wpl;
      // The order of the bytes within a word does not matter to a minimum or a maximum.
      const auto* bytes = reinterpret_cast<const uint8_t*>(line);
      uint8_t least = 255, most = 0;
      for (int i = 0; i < 4 * words; ++i) {
        least = std::min(least, bytes[i]);
        most = std::max(most, bytes[i]);
      }
      for (int x = 4 * words; x < width; ++x) {
        const auto value = uint8_t(GET_DATA_BYTE(line, x));
        least = std::min(least, value);
        most = std::max(most, value);
      }
      if (least < low || most > high) return false;
    }
    return true;
  }

  // The content of `pix` as a one-bit mask: pixels that differ clearly from the background (its
  // most common grey, light or dark), specks smaller than kSpeckSize each way left out. A few
  // cheap passes over the pixels, no recognition.
  static PixPtr contentMask(Pix* pix) {
    const int width = pixGetWidth(pix), height = pixGetHeight(pix);
    PixPtr binary;  // 1 = content
    if (pixGetDepth(pix) == 1) {
      binary.reset(pixClone(pix));
      l_int32 dark = 0;
      pixCountPixels(binary.get(), &dark, nullptr);
      if (int64_t(dark) * 2 > int64_t(width) * height) {
        binary.reset(pixInvert(nullptr, binary.get()));
      }
    } else {
      PixPtr gray(pixGetDepth(pix) == 8    ? pixClone(pix)
                  : pixGetDepth(pix) == 32 ? pixConvertRGBToLuminance(pix)
                                           : pixConvertTo8(pix, 0));
      if (!gray) return nullptr;
      const int background = TesseractRecognizer::background(gray.get());
      if (background >= 128) {
        binary.reset(pixThresholdToBinary(gray.get(), std::max(1, background - kContentContrast)));
      } else {
        // 1 where darker than the threshold, that is background: invert to get the content.
        binary.reset(
            pixThresholdToBinary(gray.get(), std::min(256, background + kContentContrast + 1)));
        if (binary) pixInvert(binary.get(), binary.get());
      }
    }
    if (!binary) return nullptr;
    // What runs at least kSpeckSize pixels across or down survives one of the two openings.
    PixPtr across(pixOpenBrick(nullptr, binary.get(), kSpeckSize, 1));
    PixPtr down(pixOpenBrick(nullptr, binary.get(), 1, kSpeckSize));
    if (!across || !down) return nullptr;
    pixOr(across.get(), across.get(), down.get());
    return across;
  }

  // The box around the content of `pix` (see contentMask), with what its lines look like;
  // nothing for a blank image.
  static std::optional<PixelBox> contentBox(Pix* pix, PageLines* lines) {
    PixPtr mask = contentMask(pix);
    if (!mask) return std::nullopt;
    *lines = linesOf(mask.get());
    Box* box = nullptr;
    if (pixClipBoxToForeground(mask.get(), nullptr, nullptr, &box) != 0 || box == nullptr) {
      return std::nullopt;
    }
    l_int32 x = 0, y = 0, w = 0, h = 0;
    boxGetGeometry(box, &x, &y, &w, &h);
    boxDestroy(&box);
    return PixelBox{x, y, x + w, y + h};
  }

  // What the lines of the one-bit `mask` look like, from its row and column profiles.
  static PageLines linesOf(Pix* mask) {
    NUMA* rows = pixCountPixelsByRow(mask, nullptr);
    NUMA* columns = pixCountPixelsByColumn(mask);
    PageLines lines;
    if (rows != nullptr && columns != nullptr) {
      const std::vector<int> rowCounts = counts(rows), columnCounts = counts(columns);
      lines.direction = lineDirection(rowCounts, columnCounts);
      if (lines.direction != LineDirection::unknown) {
        lines.ascendersFirst =
            ascendersFirst(lines.direction == LineDirection::across ? rowCounts : columnCounts);
      }
    }
    numaDestroy(&rows);
    numaDestroy(&columns);
    return lines;
  }

  static std::vector<int> counts(NUMA* numbers) {
    std::vector<int> values(size_t(numaGetCount(numbers)));
    for (size_t i = 0; i < values.size(); ++i) numaGetIValue(numbers, int(i), &values[i]);
    return values;
  }

  // The content mask of `pix` reduced fourfold each way, when `pix` is large enough for two
  // threads to pay; nothing otherwise.
  static PixPtr reducedMask(Pix* pix) {
    if (int64_t(pixGetWidth(pix)) * pixGetHeight(pix) < kSplitPixels) return nullptr;
    PixPtr mask = contentMask(pix);
    if (!mask) return nullptr;
    return PixPtr(pixReduceRankBinaryCascade(mask.get(), 1, 1, 0, 0));
  }

  // Where the page of the reduced content mask `reduced`, turned clockwise by `turns` quarter
  // turns, can be cut in two (see pageSplit), in the reduced pixels; nothing otherwise.
  static std::optional<PageSplit> reducedSplit(Pix* reduced, int turns) {
    PixPtr turned(turns % 4 != 0 ? pixRotateOrth(reduced, turns % 4) : pixClone(reduced));
    if (!turned) return std::nullopt;
    const int w = pixGetWidth(turned.get()), h = pixGetHeight(turned.get());
    const l_uint32* data = pixGetData(turned.get());
    const int wpl = pixGetWpl(turned.get());
    std::vector<uint8_t> bytes(size_t(w) * h);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        bytes[size_t(y) * w + x] = uint8_t(GET_DATA_BIT(data + size_t(y) * wpl, x));
      }
    }
    // A gutter between columns is 2% of the width or more; the gaps between words of text
    // are narrower.
    return pageSplit({bytes.data(), w, h, size_t(w)}, std::max(3, w / 50), 2);
  }

  // `pix` cut in two (see reducedSplit) when it is large enough for two threads to pay, with
  // each part's box; nothing otherwise.
  static std::vector<Panel> halves(Pix* pix) {
    std::vector<Panel> parts;
    const int width = pixGetWidth(pix), height = pixGetHeight(pix);
    const PixPtr reduced = reducedMask(pix);
    const std::optional<PageSplit> split =
        reduced ? reducedSplit(reduced.get(), 0) : std::optional<PageSplit>();
    if (!split) return parts;
    const int at = std::min(split->vertical ? width : height, split->at * 4);
    const PixelBox first = split->vertical ? PixelBox{0, 0, at, height} : PixelBox{0, 0, width, at};
    const PixelBox second =
        split->vertical ? PixelBox{at, 0, width, height} : PixelBox{0, at, width, height};
    for (const PixelBox& r : {first, second}) {
      Box* box = boxCreate(r.left, r.top, r.right - r.left, r.bottom - r.top);
      PixPtr part(pixClipRectangle(pix, box, nullptr));
      boxDestroy(&box);
      if (!part) return {};
      parts.push_back({r, std::move(part)});
    }
    return parts;
  }

  // The data names to recognise with, in priority order; fails naming a language without data.
  // With a detected `script`, languages of that script are preferred.
  static bool chooseLanguages(const Settings& settings, const std::vector<std::string>& installed,
                              const std::string& script, std::vector<std::string>* chosen,
                              std::string* error) {
    for (const auto& identifier : settings.languages) {
      auto data = languageDataName(identifier);
      if (!data) {
        *error = "unsupported recognition language \"" + identifier + "\"";
        return false;
      }
      if (!contains(installed, *data)) {
        *error = "no recognition data is installed for the language \"" + identifier +
                 "\" (install " + languagePackage(*data) + ")";
        return false;
      }
      if (!contains(*chosen, *data)) chosen->push_back(*data);
    }
    if (settings.automaticallyDetectLanguage) {
      std::vector<std::string> detected;
      for (const auto& data : *chosen) {
        if (script.empty() || languageScript(data) == script) detected.push_back(data);
      }
      for (const auto& data : installed) {
        if (!script.empty() && languageScript(data) == script && !contains(detected, data)) {
          detected.push_back(data);
        }
      }
      if (detected.size() > kMaxDetectedLanguages) detected.resize(kMaxDetectedLanguages);
      if (!detected.empty()) *chosen = detected;
    }
    if (chosen->empty()) {
      if (!contains(installed, "eng")) {
        *error = "no recognition data is installed (install tesseract-ocr-eng)";
        return false;
      }
      chosen->push_back("eng");
    }
    return true;
  }

  // Walks the result: each Tesseract block is one observation, its paragraphs and lines in
  // reading order. Lines without text and lines lower than the minimum height are left out.
  static void collect(tesseract::TessBaseAPI& api, const ImageFrame& frame, float minimumHeight,
                      std::vector<DocumentObservation>* observations) {
    std::unique_ptr<tesseract::ResultIterator> it(api.GetIterator());
    if (!it) return;
    const auto kLine = tesseract::RIL_TEXTLINE;
    // Line heights are measured across the text, so they compare with the original's height
    // as the page stands upright, in recognised pixels.
    const double uprightHeight =
        (frame.quarterTurns % 2 == 0 ? frame.originalHeight : frame.originalWidth) * frame.scale;
    bool newBlock = true, newParagraph = true;
    do {
      if (it->IsAtBeginningOf(tesseract::RIL_BLOCK)) newBlock = true;
      if (it->IsAtBeginningOf(tesseract::RIL_PARA)) newParagraph = true;
      if (it->Empty(kLine)) continue;
      std::unique_ptr<char[]> raw(it->GetUTF8Text(kLine));
      std::string text = trimmed(raw.get());
      if (text.empty()) continue;

      PixelBox box;
      if (!it->BoundingBox(kLine, &box.left, &box.top, &box.right, &box.bottom)) continue;
      int x1 = 0, y1 = 0, x2 = 1, y2 = 0;
      if (!it->Baseline(kLine, &x1, &y1, &x2, &y2)) x1 = 0, y1 = 0, x2 = 1, y2 = 0;
      LineQuad quad = lineQuad(box, x2 - x1, y2 - y1);
      if (quad.textHeight < double(minimumHeight) * uprightHeight) continue;

      LineObservation line;
      for (size_t i = 0; i < 4; ++i) {
        line.corners[i] = originalBottomLeft(quad.corners[i], frame);
      }
      line.confidence = std::clamp(it->Confidence(kLine) / 100.0f, 0.0f, 1.0f);
      line.topCandidate = TextCandidate{text, meanWordConfidence(*it)};
      line.transcript = text;

      if (newBlock) observations->emplace_back();
      if (newBlock || newParagraph) observations->back().paragraphs.emplace_back();
      newBlock = newParagraph = false;
      observations->back().paragraphs.back().lines.push_back(std::move(line));
    } while (it->Next(kLine));
  }

  // The mean confidence of the words of the line `line` points at, 0...1.
  static float meanWordConfidence(const tesseract::ResultIterator& line) {
    tesseract::ResultIterator words(line);
    float sum = 0;
    int count = 0;
    do {
      if (!words.Empty(tesseract::RIL_WORD)) {
        sum += words.Confidence(tesseract::RIL_WORD);
        ++count;
      }
    } while (!words.IsAtFinalElement(tesseract::RIL_TEXTLINE, tesseract::RIL_WORD) &&
             words.Next(tesseract::RIL_WORD));
    return count > 0 ? std::clamp(sum / count / 100.0f, 0.0f, 1.0f) : 0.0f;
  }

  PixPtr image_;
  ImageSize size_;
  int64_t decodeBytes_ = 0;
};

}  // namespace
}  // namespace tallowbrook::VisionOCR

extern "C" tallowbrook::VisionOCR::TextRecognizer* tallowbrook_create_text_recognizer() {
  return new tallowbrook::VisionOCR::TesseractRecognizer();
}
