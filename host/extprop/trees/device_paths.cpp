#include "host/extprop/trees/device_paths.h"

#include <sys/stat.h>

#include <deque>
#include <filesystem>
#include <map>

namespace extprop {

namespace {

namespace fs = std::filesystem;

constexpr int kMostLinks = 40;  // as the kernel

enum class Kind { kNone, kLink, kOther };

Kind KindOf(const std::string& path) {
  struct stat about;
  if (path.empty() || lstat(path.c_str(), &about) != 0) return Kind::kNone;
  return S_ISLNK(about.st_mode) ? Kind::kLink : Kind::kOther;
}

std::string TargetOf(const std::string& path) {
  std::error_code ignored;
  return fs::read_symlink(path, ignored);
}

std::deque<std::string> Components(const std::string& path) {
  std::deque<std::string> components;
  for (const fs::path& name : fs::path(path).relative_path()) components.push_back(name);
  return components;
}

// Leads up from "/" to "/", as the kernel does.
std::string Parent(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

bool ClimbsAbove(const std::string& directory, const std::string& target) {
  int depth = static_cast<int>(Components(directory).size());
  for (const std::string& name : Components(target)) {
    if (name.empty() || name == ".") continue;
    depth += name == ".." ? -1 : 1;
    if (depth < 0) return true;
  }
  return false;
}

}  // namespace

std::string DevicePaths::Source(const std::string& path) const {
  for (auto layer = layers_.rbegin(); layer != layers_.rend(); ++layer) {
    const std::string place = layer->place == "/" ? "" : layer->place;
    if ((path + "/").rfind(place + "/", 0) == 0) return layer->source + path.substr(place.size());
  }
  return "";
}

std::string DevicePaths::WithoutLinks(const std::string& path) const {
  std::string reached;
  std::deque<std::string> rest = Components(path);
  int links = 0;
  while (!rest.empty()) {
    const std::string name = rest.front();
    rest.pop_front();
    if (name.empty() || name == ".") continue;
    if (name == "..") {
      reached = Parent(reached);
      continue;
    }
    const size_t length = reached.size();
    reached.append("/").append(name);
    const std::string source = Source(reached);
    if (KindOf(source) == Kind::kLink) {
      if (++links > kMostLinks) return reached;
      const std::string target = TargetOf(source);
      reached.resize(target[0] == '/' ? 0 : length);
      const std::deque<std::string> way = Components(target);
      rest.insert(rest.begin(), way.begin(), way.end());
    }
  }
  return reached;
}

std::string DevicePaths::OnWorkstation(const std::string& path) const {
  const std::string source = Source(WithoutLinks(path));
  return KindOf(source) == Kind::kOther ? source : "";
}

bool DevicePaths::LeadsOut(const std::string& path, const std::string& target) const {
  if (target.empty() || target[0] != '/') return ClimbsAbove(Parent(path), target);
  std::error_code ignored;
  return OnWorkstation(target).empty() && fs::exists(target, ignored);
}

std::vector<OutgoingLink> DevicePaths::LinksOut(const std::vector<std::string>& places) const {
  std::map<std::string, std::string> found;
  const auto look = [&](const std::string& path, const std::string& source) {
    const std::string target = TargetOf(source);
    if (LeadsOut(path, target)) found[path] = target;
  };
  for (const std::string& place : places) {
    std::string way;
    for (const std::string& name : Components(place)) {
      way = WithoutLinks(way).append("/").append(name);
      if (KindOf(Source(way)) == Kind::kLink) look(way, Source(way));
    }
    const std::string root = WithoutLinks(place);
    const std::string source = Source(root);
    std::error_code error;
    constexpr auto kOptions = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator entry(source, kOptions, error), end;
         !error && entry != end; entry.increment(error)) {
      if (!entry->is_symlink(error)) continue;
      look(root + entry->path().string().substr(source.size()), entry->path());
    }
  }
  std::vector<OutgoingLink> links;
  links.reserve(found.size());
  for (const auto& [path, target] : found) links.push_back({path, target});
  return links;
}

}  // namespace extprop
