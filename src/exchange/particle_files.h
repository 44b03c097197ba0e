// Particle files of other tools, in and out.
#pragma once
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/particle_format.h"

namespace MELDO_GLOBAL::exchange {

/// The first bytes of a file, unwrapped, at most so many. Throws host::FileError with a sentence
/// that names the file.
std::string HeadOfFile(const std::filesystem::path& path, std::size_t bytes);

/// The format of a name such as "bgeo"; null for another word.
const ParticleFormat* FindFormat(std::string_view name);
/// What a file's name says: its format, null for none of them, and whether it is wrapped.
struct NamedFormat {
  const ParticleFormat* format = nullptr;
  bool isGzip = false;
};
NamedFormat FormatOfName(const std::filesystem::path& path);
/// The format of a file by its first bytes, and where these don't tell by its name; null where
/// neither does. Throws host::FileError for one that can't be read.
const ParticleFormat* FormatOfFile(const std::filesystem::path& path);

/// All particles of a file, whose format the bytes tell. Throws host::FileError with a sentence
/// that names the file.
ParticleTable ReadParticles(const std::filesystem::path& path);
/// The same of bytes in memory, in a format that they have.
ParticleTable ParseParticles(std::string_view bytes, const ParticleFormat& format);

/// Writes a whole file in the format of its name, and answers what is different in it. The file
/// appears when it is done. Particles at no finite place are in no file of any format. Throws
/// host::FileError.
WriteReport WriteParticles(const std::filesystem::path& path, const ParticleTable& table);
/// The same in a format of choice, wrapped where it is asked for and the format has it.
WriteReport WriteParticles(const std::filesystem::path& path, const ParticleTable& table,
                           const ParticleFormat& format, bool isGzip);
/// The bytes of such a file.
std::string EncodeParticles(const ParticleTable& table, const ParticleFormat& format,
                            bool isGzip = false, WriteReport* report = nullptr);

}  // namespace MELDO_GLOBAL::exchange
