#pragma once

#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>
#include <vector>

// Values as bytes, for handing them from one process of the tool to another that it forked: both
// have the same code, so the bytes carry no names and no version. A type is packed where FieldsOf
// lists its members.
namespace extprop {

class Packer {
 public:
  template <typename T>
  void Put(const T& value) {
    if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
      bytes_.append(reinterpret_cast<const char*>(&value), sizeof(value));
    } else {
      std::apply([&](const auto&... field) { (Put(value.*field.second), ...); }, FieldsOf(&value));
    }
  }
  void Put(const std::string& text) {
    Put(text.size());
    bytes_ += text;
  }
  template <typename T>
  void Put(const std::vector<T>& items) {
    Put(items.size());
    for (const T& item : items) Put(item);
  }
  template <typename K, typename V>
  void Put(const std::map<K, V>& items) {
    Put(items.size());
    for (const auto& [key, value] : items) {
      Put(key);
      Put(value);
    }
  }
  template <typename... T>
  void Put(const std::variant<T...>& value) {
    Put(value.index());
    std::visit([&](const auto& what) { Put(what); }, value);
  }

  std::string Take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

// Reads what a Packer wrote, in the same order. The bytes must be whole.
class Unpacker {
 public:
  explicit Unpacker(const std::string& bytes) : next_(bytes.data()) {}

  template <typename T>
  void Get(T* value) {
    if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
      memcpy(value, next_, sizeof(*value));
      next_ += sizeof(*value);
    } else {
      std::apply([&](const auto&... field) { (Get(&(value->*field.second)), ...); },
                 FieldsOf(static_cast<const T*>(value)));
    }
  }
  void Get(std::string* text) {
    const auto size = Get<size_t>();
    text->assign(next_, size);
    next_ += size;
  }
  template <typename T>
  void Get(std::vector<T>* items) {
    items->resize(Get<size_t>());
    for (T& item : *items) Get(&item);
  }
  template <typename K, typename V>
  void Get(std::map<K, V>* items) {
    for (size_t left = Get<size_t>(); left > 0; --left) {
      K key = Get<K>();
      items->emplace_hint(items->end(), std::move(key), Get<V>());
    }
  }
  template <typename... T>
  void Get(std::variant<T...>* value) {
    GetAlternative<0>(Get<size_t>(), value);
  }
  template <typename T>
  T Get() {
    T value{};
    Get(&value);
    return value;
  }

 private:
  template <size_t kIndex, typename... T>
  void GetAlternative(size_t index, std::variant<T...>* value) {
    if constexpr (kIndex < sizeof...(T)) {
      if (index != kIndex) return GetAlternative<kIndex + 1>(index, value);
      Get(&value->template emplace<kIndex>());
    }
  }

  const char* next_;
};

template <typename T>
std::string Pack(const T& value) {
  Packer packer;
  packer.Put(value);
  return packer.Take();
}

template <typename T>
T Unpack(const std::string& bytes) {
  return Unpacker(bytes).Get<T>();
}

}  // namespace extprop
