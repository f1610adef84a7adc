// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/check/Models.h"

#include <algorithm>
#include <optional>

#include "DriverException.h"
#include "ECR.h"
#include "EcrModel.h"

namespace check {

namespace {

const char* NameOf(EcrType type) {
    switch (type) {
        case EcrType_ValkorOcelotT:
            return "ocelot";
        case EcrType_ValkorServalT:
            return "serval";
        case EcrType_ValkorLynxT:
            return "lynx";
        case EcrType_ValkorPumaT:
            return "puma";
        case EcrType_ValkorMargayT:
            return "margay";
    }
    return "";
}

std::optional<Model> ModelOfCode(std::uint8_t code) {
    try {
        const FiscalProtocol known = GetFiscalProtocol(code);
        return Model{NameOf(known.ecrType), known.protocolVersion, code};
    } catch (DriverException* unknown) {
        delete unknown;
        return {};
    }
}

std::vector<Model> AskTheDriver() {
    constexpr int codes = 256;
    std::vector<Model> models;
    for (int code = 0; code < codes; ++code) {
        if (const auto model = ModelOfCode(static_cast<std::uint8_t>(code)))
            models.push_back(*model);
    }
    return models;
}

std::ptrdiff_t CountOf(const std::string& name, const std::vector<Model>& models) {
    return std::ranges::count(models, name, &Model::name);
}

}  // namespace

const std::vector<Model>& AllModels() {
    static const std::vector<Model> models = AskTheDriver();
    return models;
}

std::vector<Model> ModelsOf(const std::string& name, int version) {
    std::vector<Model> models = AllModels();
    std::erase_if(models, [&](const Model& model) {
        return (!name.empty() && model.name != name) || (version != 0 && model.version != version);
    });
    return models;
}

std::vector<std::string> NamesOf(const std::vector<Model>& some, const std::vector<Model>& asked) {
    std::vector<std::string> names;
    if (some.size() == asked.size()) return names;
    for (const Model& model : some) {
        const bool allVersions = CountOf(model.name, some) == CountOf(model.name, asked);
        std::string name = model.name;
        if (!allVersions) name += " protocol " + std::to_string(model.version);
        if (std::ranges::find(names, name) == names.end()) names.push_back(name);
    }
    return names;
}

}  // namespace check
