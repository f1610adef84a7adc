// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "emulator/Model.h"

#include <array>

namespace emulator {

namespace {

using enum WireFamily;

// A new model is a row here.
constexpr std::array<Model, 9> models = {{
    {"ocelot", 1, 0, 36, 18, 13, Ocelot},
    {"lynx", 1, 1, 20, 18, 13, Ocelot},
    {"puma", 1, 2, 32, 18, 13, Ocelot},
    {"serval", 1, 3, 32, 18, 13, Ocelot},
    {"ocelot", 2, 4, 36, 18, 13, Ocelot},
    {"lynx", 2, 5, 20, 18, 13, Ocelot},
    {"puma", 2, 6, 32, 18, 13, Ocelot},
    {"serval", 2, 7, 32, 18, 13, Ocelot},
    {"margay", 2, 8, 20, 20, 2, Margay},
}};

constexpr bool InOrderOfCodes() {
    for (std::size_t i = 0; i < models.size(); ++i)
        if (models[i].code != i) return false;
    return true;
}
static_assert(InOrderOfCodes());

}  // namespace

std::span<const Model> Models() {
    return models;
}

const Model* FindModel(std::string_view name, std::uint8_t version) {
    for (const Model& model : models)
        if (model.name == name && model.version == version) return &model;
    return nullptr;
}

std::size_t PayloadSize(const Model& model, std::uint8_t command) {
    switch (command) {
        case EnterFiscalMode:
            return 1;  // cashier
        case ExitFiscalMode:
            return 0;
        case PrintComment:
            return model.CommentWidth();
        case DeptSale:
        case DeptReturn:
            return 1 + model.nameWidth + 3 + 4;  // department, name, quantity, price
        case PluSale:
        case PluReturn:
            return model.PluSaleHasPrice() ? 7 + 3 + 4 : 7 + 3;
        case PercentDiscount:
        case PercentMarkup:
            return 2;
        case AmountDiscount:
        case AmountMarkup:
            return 4;
        case Total:
            return 0;
        case Tender:
            return 1 + 4;  // medium, amount
        case TenderForeign:
            return 1 + 1 + 4;  // currency, medium, amount
        case ShowInfo:
            return 2;
        case OpenCashDrawer:
            return 0;
        case ReceivedOnAccount:
        case PaidOut:
            return 1 + 4;
        case ReceivedForeign:
        case PaidOutForeign:
            return 1 + 1 + 4;
        case Report:
            return 1 + 1;  // number, mode
        case Barcode:
            return model.RasterBytes() + 2 + model.lineLength;
        case Ticket:
        case Coupon:
            return 4;
        default:
            return kNotACommand;
    }
}

std::string_view CommandName(std::uint8_t command) {
    struct Row {
        std::uint8_t command;
        std::string_view name;
    };
    static constexpr Row rows[] = {
        {EnterFiscalMode, "EnterFiscalMode"},
        {ExitFiscalMode, "ExitFiscalMode"},
        {PrintComment, "PrintComment"},
        {DeptSale, "DeptSale"},
        {DeptReturn, "DeptReturn"},
        {PluSale, "PluSale"},
        {PluReturn, "PluReturn"},
        {PercentDiscount, "PercentDiscount"},
        {AmountDiscount, "AmountDiscount"},
        {PercentMarkup, "PercentMarkup"},
        {AmountMarkup, "AmountMarkup"},
        {Total, "Total"},
        {Tender, "Tender"},
        {TenderForeign, "TenderForeign"},
        {ShowInfo, "ShowInfo"},
        {OpenCashDrawer, "OpenCashDrawer"},
        {ReceivedOnAccount, "ReceivedOnAccount"},
        {ReceivedForeign, "ReceivedForeign"},
        {PaidOut, "PaidOut"},
        {PaidOutForeign, "PaidOutForeign"},
        {Report, "Report"},
        {Barcode, "Barcode"},
        {ReadFiscalStatus, "ReadFiscalStatus"},
        {Ticket, "Ticket"},
        {Coupon, "Coupon"},
    };
    for (const Row& row : rows)
        if (row.command == command) return row.name;
    return "?";
}

}  // namespace emulator
