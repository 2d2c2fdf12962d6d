// SPDX-License-Identifier: MIT
#include "Model.h"

namespace {

struct HeldChoice {
    int code = 0;
    std::string name;
    std::string reason;
};

}  // namespace

struct _MorvaneChoice {
    GObject parent;
    HeldChoice* held;
};

G_DEFINE_FINAL_TYPE(MorvaneChoice, morvane_choice, G_TYPE_OBJECT)

using namespace morvane;

namespace morvane {

namespace {

MorvaneChoice* newChoice(const EntryChoice& choice) {
    auto* const made = MORVANE_CHOICE(g_object_new(MORVANE_TYPE_CHOICE, nullptr));
    *made->held = {static_cast<int>(choice.code), shownText(choice.name), shownText(choice.whyNot)};
    return made;
}

}  // namespace

GListModel* modelOf(const std::vector<EntryChoice>& choices) {
    auto* const list = g_list_store_new(MORVANE_TYPE_CHOICE);
    for (const auto& choice : choices) {
        const Owned made(newChoice(choice));
        g_list_store_append(list, made.get());
    }
    return G_LIST_MODEL(list);
}

}  // namespace morvane

static void morvane_choice_init(MorvaneChoice* self) {
    self->held = new HeldChoice;
}

static void morvane_choice_class_init(MorvaneChoiceClass* made) {
    MorvaneChoice* const self = nullptr;
    ObjectClass<MorvaneChoice>::setUp(
        made, {{g_param_spec_int("code", nullptr, nullptr, G_MININT, G_MAXINT, 0, readable),
                [](MorvaneChoice* choice, GValue* value) {
                    g_value_set_int(value, morvane_choice_get_code(choice));
                }},
               lentTextProperty<morvane_choice_get_name>("name", self),
               lentTextProperty<morvane_choice_get_reason>("reason", self)});
}

int morvane_choice_get_code(MorvaneChoice* self) {
    g_return_val_if_fail(MORVANE_IS_CHOICE(self), 0);
    return self->held->code;
}

const char* morvane_choice_get_name(MorvaneChoice* self) {
    g_return_val_if_fail(MORVANE_IS_CHOICE(self), nullptr);
    return self->held->name.c_str();
}

const char* morvane_choice_get_reason(MorvaneChoice* self) {
    g_return_val_if_fail(MORVANE_IS_CHOICE(self), nullptr);
    return self->held->reason.empty() ? nullptr : self->held->reason.c_str();
}
