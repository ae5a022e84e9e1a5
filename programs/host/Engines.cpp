#include "programs/host/Engines.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <ostream>
#include <stdexcept>

#include "engines/sdk/EngineManual.h"
#include "hosting/EngineRegistry.h"
#include "runtime/console/ErrorStream.h"

namespace qor::programs {

namespace {

// Members in the order in which they are set.
using Json = nlohmann::ordered_json;
using hosting::EngineRegistry;
using hosting::RegisteredEngine;

std::string dumped(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace); }

Json jsonOf(const RegisteredEngine& engine) {
  Json json{{"name", engine.name}, {"summary", engine.summary}};
  if (!engine.library.empty()) {
    json["library"] = engine.library.string();
  } else {
    json["program"] = engine.program.string();
    json["arguments"] = engine.arguments;
    if (!engine.manual.empty()) json["manualFile"] = engine.manual.string();
  }
  json["file"] = engine.file.string();
  return json;
}

void listAsJson(const EngineRegistry& registry, std::ostream& out) {
  Json engines = Json::array();
  for (const auto& engine : registry.engines()) engines.push_back(jsonOf(engine));
  out << dumped({{"engines", engines}, {"problems", registry.problems()}}) << '\n';
}

void listAsText(const EngineRegistry& registry, std::ostream& out) {
  std::size_t width = 0;
  for (const auto& engine : registry.engines()) width = std::max(width, engine.name.size());
  for (const auto& engine : registry.engines()) {
    out << (engine.summary.empty() ? engine.name
                                   : fmt::format("{:<{}}  {}", engine.name, width, engine.summary))
        << '\n';
  }
  for (const auto& problem : registry.problems()) console::writeErrorLine("tamb-host: " + problem);
}

std::string noEngine(const EngineRegistry& registry, const std::string& name) {
  std::string text = fmt::format("unknown engine {:?}; ", name);
  text += registry.engines().empty()
              ? "none is registered"
              : fmt::format("expected one of \"{}\"", fmt::join(registry.names(), "\", \""));
  if (!registry.problems().empty()) {
    text += fmt::format("; not registered: {}", fmt::join(registry.problems(), "; "));
  }
  return text;
}

void describeAsText(const RegisteredEngine& engine, std::ostream& out) {
  if (const auto manual = hosting::manualOf(engine)) {
    out << engines::manualText(*manual);
  } else {
    out << fmt::format("Engine:\n  {:<22}{}\n  {:<22}{}\n", "Name", engine.name, "Summary", engine.summary);
  }
  if (!engine.library.empty()) {
    out << "\nLibrary:\n  " << engine.library.string();
  } else {
    out << "\nProgram:\n  " << engine.program.string();
    for (const auto& argument : engine.arguments) out << ' ' << argument;
  }
  out << "\n\nRegistered by:\n  " << engine.file.string() << '\n';
}

}  // namespace

void listEngines(const std::vector<std::filesystem::path>& folders, bool asJson, std::ostream& out) {
  const EngineRegistry registry(hosting::registryFolders(folders));
  asJson ? listAsJson(registry, out) : listAsText(registry, out);
}

void describeEngine(const std::vector<std::filesystem::path>& folders, const std::string& name, bool asJson,
                    std::ostream& out) {
  const EngineRegistry registry(hosting::registryFolders(folders));
  const auto* const engine = registry.find(name);
  if (engine == nullptr) throw std::runtime_error(noEngine(registry, name));
  if (!asJson) return describeAsText(*engine, out);
  Json json = jsonOf(*engine);
  const auto manual = hosting::manualOf(*engine);
  json["manual"] = manual ? Json::parse(engines::manualJson(*manual)) : Json();
  out << dumped(json) << '\n';
}

}  // namespace qor::programs
