// The formats of particle files.
#pragma once
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/byte_sink.h"
#include "exchange/byte_source.h"
#include "exchange/particle_table.h"

namespace MELDO_GLOBAL::exchange {

/// Whether files of a format are wrapped by gzip: never, where the name ends in .gz, or always.
enum class GzipUse { Never, ByName, Always };

/// In what a file is another than the table that it was written from.
struct WriteReport {
  i64 count = 0;                  ///< particles that it holds
  std::vector<std::string> lost;  ///< names of columns that aren't in it
  /// Clauses of what became of numbers, by the name of their column, and of particles, by none.
  std::map<std::string, std::string> changed;
  /// Clauses about columns of which only the places in a list of texts are in it.
  std::map<std::string, std::string> wordless;

  /// All of that as clauses.
  std::vector<std::string> Clauses() const;
};

/// Tells of a series of files, a frame each, what was lost and changed in them: of each column
/// once.
class SeriesReport {
 public:
  /// What no earlier file of the series was told to lack, as clauses.
  std::vector<std::string> News(const WriteReport& report);

 private:
  WriteReport mTold;
};

/// What a writer takes, and where it says what the format can't hold.
struct WriteJob {
  const ParticleTable& table;
  ByteSink& sink;
  WriteReport report = {};
};

/// One format. Readers and writers throw host::FileError with a clause that goes on behind the name
/// of the file; what readers leave out they say in the table's warnings.
struct ParticleFormat {
  std::string_view name;                     ///< as users write it
  std::vector<std::string_view> extensions;  ///< with the dot
  GzipUse gzip = GzipUse::Never;
  /// Whether a file begins like one of this format; null where its first bytes don't tell.
  bool (*begins)(std::string_view head) = nullptr;
  void (*read)(ByteSource& source, ParticleTable& table) = nullptr;  ///< null: it can't be read
  void (*write)(WriteJob& job) = nullptr;                            ///< null: it can't be written
  bool keepsWords = false;  ///< lists of texts are in its files
};

// Each stands in the file of its name.
const ParticleFormat& PrtFormat();
const ParticleFormat& BgeoFormat();
const ParticleFormat& GeoFormat();
const ParticleFormat& BinFormat();
const ParticleFormat& PdaFormat();
const ParticleFormat& PdbFormat();
const ParticleFormat& Pdb32Format();
const ParticleFormat& Pdb64Format();
const ParticleFormat& PdcFormat();
const ParticleFormat& PtcFormat();
const ParticleFormat& PtsFormat();
const ParticleFormat& RibFormat();
const ParticleFormat& XyzFormat();
const ParticleFormat& McFormat();
const ParticleFormat& IcecacheFormat();
const ParticleFormat& PlyFormat();
const ParticleFormat& CsvFormat();
const ParticleFormat& VdbPointsFormat();

/// All of them, in the order in which they are told.
const std::vector<const ParticleFormat*>& ParticleFormats();

}  // namespace MELDO_GLOBAL::exchange
