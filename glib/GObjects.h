// SPDX-License-Identifier: MIT
#pragma once

#include <glib-object.h>

#include <exception>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// What the GObject classes are made of.
namespace morvane {

/// Runs what C has called. An exception ends here: it is reported as a critical warning, as other
/// mistakes of a program are, and the answer is an empty one.
template <class Body>
auto guarded(Body&& body) noexcept {
    using Answer = decltype(body());
    try {
        return body();
    } catch (const std::exception& e) {
        g_critical("%s", e.what());
    } catch (...) {
        g_critical("an unknown exception");
    }
    if constexpr (!std::is_void_v<Answer>)
        return Answer{};
}

inline char* copied(const std::string& text) {
    return g_strdup(text.c_str());
}

/// A property of `Object`, and what reads and writes it.
template <class Object>
struct Property {
    GParamSpec* property;
    void (*get)(Object*, GValue*);
    void (*set)(Object*, const GValue*) = nullptr;
};

// Whoever sets a property has the model notify of it, once.
inline constexpr auto readable =
    static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
inline constexpr auto writable =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | G_PARAM_EXPLICIT_NOTIFY);

inline GParamSpec* textSpec(const char* name) {
    return g_param_spec_string(name, nullptr, nullptr, nullptr, readable);
}
inline GParamSpec* flagSpec(const char* name) {
    return g_param_spec_boolean(name, nullptr, nullptr, FALSE, readable);
}
inline GParamSpec* objectSpec(const char* name, GType type, GParamFlags flags = readable) {
    return g_param_spec_object(name, nullptr, nullptr, type, flags);
}

/// A property whose getter makes a new text.
template <auto Getter, class Object>
Property<Object> textProperty(const char* name, Object* /*which*/) {
    return {textSpec(name),
            [](Object* self, GValue* value) { g_value_take_string(value, Getter(self)); }};
}
/// A property whose getter lends its text.
template <auto Getter, class Object>
Property<Object> lentTextProperty(const char* name, Object* /*which*/) {
    return {textSpec(name),
            [](Object* self, GValue* value) { g_value_set_string(value, Getter(self)); }};
}
template <auto Getter, class Object>
Property<Object> flagProperty(const char* name, Object* /*which*/) {
    return {flagSpec(name),
            [](Object* self, GValue* value) { g_value_set_boolean(value, Getter(self)); }};
}
template <auto Getter, class Object>
Property<Object> countProperty(const char* name, Object* /*which*/) {
    return {g_param_spec_uint64(name, nullptr, nullptr, 0, G_MAXUINT64, 0, readable),
            [](Object* self, GValue* value) { g_value_set_uint64(value, Getter(self)); }};
}
/// A property whose getter lends its object.
template <auto Getter, class Object>
Property<Object> objectProperty(const char* name, GType type, Object* /*which*/) {
    return {objectSpec(name, type),
            [](Object* self, GValue* value) { g_value_set_object(value, Getter(self)); }};
}

/// Gives a class its properties and its finalizer. `Object` has a member `held`, which it owns.
template <class Object>
class ObjectClass {
  public:
    static void setUp(gpointer made, std::vector<Property<Object>> properties) {
        auto* const object = G_OBJECT_CLASS(made);
        object->get_property = get;
        object->set_property = set;
        object->finalize = finalize;
        parent_ = static_cast<GObjectClass*>(g_type_class_peek_parent(made));
        // Classes last as long as the process.
        properties_ = new std::vector(std::move(properties));
        for (std::size_t i = 0; i != properties_->size(); ++i)
            g_object_class_install_property(object, static_cast<guint>(i + 1),
                                            (*properties_)[i].property);
    }

  private:
    static void get(GObject* self, guint id, GValue* value, GParamSpec* /*property*/) {
        (*properties_)[id - 1].get(reinterpret_cast<Object*>(self), value);
    }
    static void set(GObject* self, guint id, const GValue* value, GParamSpec* /*property*/) {
        (*properties_)[id - 1].set(reinterpret_cast<Object*>(self), value);
    }
    static void finalize(GObject* self) {
        delete reinterpret_cast<Object*>(self)->held;
        parent_->finalize(self);
    }

    static inline GObjectClass* parent_ = nullptr;
    static inline std::vector<Property<Object>>* properties_ = nullptr;
};

/// Owns a reference to an object.
template <class Object>
class Owned {
  public:
    Owned() = default;
    /// Takes the reference over.
    explicit Owned(Object* object) : object_(object) {}
    static Owned sharing(Object* object) {
        return Owned(object ? static_cast<Object*>(g_object_ref(object)) : nullptr);
    }
    Owned(const Owned& other) : Owned(sharing(other.object_)) {}
    Owned(Owned&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Owned& operator=(Owned other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Owned() { g_clear_object(&object_); }

    Object* get() const { return object_; }
    Object* release() { return std::exchange(object_, nullptr); }
    explicit operator bool() const { return object_ != nullptr; }

  private:
    Object* object_ = nullptr;
};

}  // namespace morvane
