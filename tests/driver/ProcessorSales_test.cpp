// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// SALE and RETURN, by department and by PLU.

#include <gtest/gtest.h>

#include "tests/support/ProcessorTest.h"

namespace {

/// A department sale as the register hears it; quantity and price are their hex digits.
std::string Sold(const std::string& department, const std::string& name, std::size_t nameLength,
                 const std::string& quantity, const std::string& price) {
    return "b3 fiscal : " + department + " " + Hex(name, nameLength) + " " + quantity + " " + price;
}
/// The same in department 1 without a name.
std::string Sold(const std::string& quantity, const std::string& price) {
    return Sold("01", "", 18, quantity, price);
}
std::string Name(std::size_t length) {
    return std::string(length, 'n');
}

const char one[] = "00 10 00";  // a quantity of 1

using DeptOrPlu = ProcessorTest;
using DepartmentNumber = ProcessorTest;
using NameOfASale = ProcessorTest;
using SaleByAmount = ProcessorTest;
using SaleByPrice = ProcessorTest;
using SaleByPriceAndAmount = ProcessorTest;
using ItemTheRegisterCannotPrint = ProcessorTest;
using PriceAndQuantityAsComments = ProcessorTest;
using PluSale = ProcessorTest;

// Which sale

TEST_F(DeptOrPlu, OneOfThemIsNeeded) {
    ExpectRefused("SALE: AMOUNT=1", "PLUNR or DEPTNR is missing (line: 1)");
    ExpectRefused("RETURN", "PLUNR or DEPTNR is missing (line: 1)");
}

TEST_F(DeptOrPlu, PluWinsAndTheDepartmentIsTooMuch) {
    ExpectRefused("SALE: DEPTNR=1; PLUNR=2", "Too many parameters (line: 1)");
}

TEST_F(DeptOrPlu, PluWinsOverAWrongDepartment) {
    ExpectRefused("SALE: DEPTNR=0; PLUNR=0", "Incorrect PLUNR value (line: 1)");
}

TEST_F(DeptOrPlu, ChooseTheCommandCode) {
    const std::string dept = " fiscal : 01 " + Hex("", 18) + " 00 10 00 00 00 02 50";
    const std::string plu = " fiscal : 00 00 00 00 00 00 05 00 10 00 00 00 00 00";
    ExpectSent("SALE: DEPTNR=1; AMOUNT=2.50", {"b3" + dept});
    ExpectSent("RETURN: DEPTNR=1; AMOUNT=2.50", {"b4" + dept});
    ExpectSent("SALE: PLUNR=5", {"b5" + plu});
    ExpectSent("RETURN: PLUNR=5", {"b6" + plu});
}

TEST_F(DeptOrPlu, GoThroughTheWholePayloadByteForByte) {
    ExpectSent("SALE: DEPTNR=12; NAME=Bread; PRICE=1.05; QNTY=2.5",
               {"b3 fiscal : 0c 42 72 65 61 64 20 20 20 20 20 20 20 20 20 20 20 20 20 "
                "00 25 00 00 00 01 05"});
}

// The department

TEST_F(DepartmentNumber, IsOneByteFrom1To99) {
    ExpectSent("SALE: DEPTNR=1; AMOUNT=1", {Sold("01", "", 18, one, "00 00 01 00")});
    ExpectSent("SALE: DEPTNR=99; AMOUNT=1", {Sold("63", "", 18, one, "00 00 01 00")});
    for (const char* number : {"0", "100", "1.5", "-1", "0.1"}) {
        ExpectRefused("SALE: DEPTNR=" + std::string(number) + "; AMOUNT=1",
                      "Incorrect DEPTNR value (line: 1)");
    }
}

TEST_F(DepartmentNumber, MustBeANumber) {
    ExpectRefused("SALE: DEPTNR=one; AMOUNT=1", "Wrong number format (line: 1)");
}

TEST_F(DepartmentNumber, IsLookedAtBeforeTheName) {
    ExpectRefused("SALE: DEPTNR=0; NAME=" + Name(36), "Incorrect DEPTNR value (line: 1)");
}

// The name

TEST_F(NameOfASale, FillsItsFieldOrIsPrintedAsACommentOrIsTooLong) {
    struct {
        Model model;
        std::size_t nameLength, commentLength;
    } const rows[] = {{Model::Ocelot, 18, 35},
                      {Model::Serval, 18, 31},
                      {Model::Lynx, 18, 19},
                      {Model::Puma, 18, 31}};
    const auto saleNamed = [](std::size_t length) {
        return "SALE: DEPTNR=1; AMOUNT=1; NAME=" + Name(length);
    };
    for (const auto& row : rows) {
        const std::string unnamed = Sold("01", "", 18, one, "00 00 01 00");
        ExpectSent(row.model, saleNamed(18), {Sold("01", Name(18), 18, one, "00 00 01 00")});
        ExpectSent(row.model, saleNamed(19), {Comment(Name(19), row.commentLength), unnamed});
        ExpectSent(row.model, saleNamed(row.commentLength),
                   {Comment(Name(row.commentLength), row.commentLength), unnamed});
        ExpectRefused(row.model, saleNamed(row.commentLength + 1), "NAME is too long (line: 1)");
    }
}

TEST_F(NameOfASale, HasTwentyCharactersOnTheMargayAndIsNeverACommentThere) {
    const std::string saleOf1 = "SALE: DEPTNR=1; AMOUNT=1; NAME=";
    for (const std::size_t length : {19u, 20u}) {
        ExpectSent(Model::Margay, saleOf1 + Name(length),
                   {Sold("01", Name(length), 20, one, "00 00 01 00")});
    }
    ExpectRefused(Model::Margay, saleOf1 + Name(21), "NAME is too long (line: 1)");
}

TEST_F(NameOfASale, IsPaddedWithBlanks) {
    ExpectSent("SALE: DEPTNR=1; AMOUNT=1; NAME=\"a b\"",
               {Sold("01", "a b", 18, one, "00 00 01 00")});
}

TEST_F(NameOfASale, IsPrintedBeforePriceAndQuantity) {
    ExpectSent("SALE: DEPTNR=1; NAME=" + Name(19) + "; PRICE=0.335; QNTY=3",
               {Comment(Name(19)), Comment(" 3 x 0.335 @"), Sold(one, "00 00 01 01")});
}

TEST_F(NameOfASale, IsLookedAtBeforeTheAmount) {
    ExpectRefused("SALE: DEPTNR=1; NAME=" + Name(36) + "; AMOUNT=x", "NAME is too long (line: 1)");
}

// By amount

TEST_F(SaleByAmount, SellsOneUnit) {
    ExpectSent("SALE: DEPTNR=1; AMOUNT=2.50", {Sold("00 10 00", "00 00 02 50")});
}

TEST_F(SaleByAmount, TakesEightDigitsAndTwoDecimals) {
    ExpectSent("SALE: DEPTNR=1; AMOUNT=0", {Sold(one, "00 00 00 00")});
    ExpectSent("SALE: DEPTNR=1; AMOUNT=999999.99", {Sold(one, "99 99 99 99")});
    for (const char* amount : {"1.005", "100000000", "1000000.01", "-0.01"}) {
        ExpectRefused("SALE: DEPTNR=1; AMOUNT=" + std::string(amount),
                      "Incorrect AMOUNT value (line: 1)");
    }
}

// The digits are counted, not the value: what is above the field loses its high digits.
TEST_F(SaleByAmount, TakesAnAmountAboveTheFieldByItsDigits) {
    ExpectSent("SALE: DEPTNR=1; AMOUNT=99999999", {Sold(one, "99 99 99 00")});
}

TEST_F(SaleByAmount, MustBeANumber) {
    ExpectRefused("SALE: DEPTNR=1; AMOUNT=1,50", "Wrong number format (line: 1)");
}

TEST_F(SaleByAmount, WantsNoQuantity) {
    ExpectRefused("SALE: DEPTNR=1; AMOUNT=1; QNTY=2", "PRICE is missing (line: 1)");
    ExpectRefused("SALE: DEPTNR=1; QNTY=2", "PRICE is missing (line: 1)");
}

TEST_F(SaleByAmount, OrByPriceButNotByNeither) {
    ExpectRefused("SALE: DEPTNR=1", "AMOUNT or PRICE must be specified (line: 1)");
    ExpectRefused("RETURN: DEPTNR=1; NAME=a", "AMOUNT or PRICE must be specified (line: 1)");
}

// By price and quantity

TEST_F(SaleByPrice, WantsAQuantity) {
    ExpectRefused("SALE: DEPTNR=1; PRICE=1", "QNTY is missing (line: 1)");
    ExpectRefused("SALE: DEPTNR=1; PRICE=1; AMOUNT=1", "QNTY is missing (line: 1)");
    ExpectRefused("SALE: DEPTNR=1; PRICE=x", "QNTY is missing (line: 1)");
}

TEST_F(SaleByPrice, WantsNumbers) {
    ExpectRefused("SALE: DEPTNR=1; PRICE=x; QNTY=1", "Wrong number format (line: 1)");
    ExpectRefused("SALE: DEPTNR=1; PRICE=1; QNTY=x", "Wrong number format (line: 1)");
    ExpectRefused("SALE: DEPTNR=1; PRICE=1; QNTY=1; AMOUNT=x", "Wrong number format (line: 1)");
}

TEST_F(SaleByPrice, IsSentAsItIs) {
    ExpectSent("SALE: DEPTNR=1; PRICE=1.00; QNTY=2", {Sold("00 20 00", "00 00 01 00")});
    ExpectSent("SALE: DEPTNR=1; PRICE=0; QNTY=0", {Sold("00 00 00", "00 00 00 00")});
}

TEST_F(SaleByPrice, IsSentAsItIsUpToTheEdgeOfTheFields) {
    ExpectSent("SALE: DEPTNR=1; PRICE=999999.99; QNTY=1", {Sold(one, "99 99 99 99")});
    ExpectSent("SALE: DEPTNR=1; PRICE=0.01; QNTY=999.999", {Sold("99 99 99", "00 00 00 01")});
    ExpectSent("SALE: DEPTNR=1; PRICE=0.01; QNTY=0.001", {Sold("00 00 01", "00 00 00 01")});
}

TEST_F(SaleByPrice, DoesNotCountZerosAfterTheLastDecimal) {
    ExpectSent("SALE: DEPTNR=1; PRICE=1.2500; QNTY=1.00000", {Sold(one, "00 00 01 25")});
}

// By price, quantity and amount

TEST_F(SaleByPriceAndAmount, TakesTheProduct) {
    ExpectSent("SALE: DEPTNR=1; PRICE=1.5; QNTY=3; AMOUNT=4.50", {Sold("00 30 00", "00 00 01 50")});
}

TEST_F(SaleByPriceAndAmount, RefusesAnythingElse) {
    for (const char* amount : {"4.49", "4.51", "0", "-4.5"}) {
        ExpectRefused("SALE: DEPTNR=1; PRICE=1.5; QNTY=3; AMOUNT=" + std::string(amount),
                      "PRICE * QNTY <> AMOUNT (line: 1)");
    }
}

TEST_F(SaleByPriceAndAmount, RefusesMoreThanTwoDecimalsFirst) {
    ExpectRefused("SALE: DEPTNR=1; PRICE=0.335; QNTY=3; AMOUNT=1.005",
                  "Incorrect AMOUNT value (too many decimals) (line: 1)");
    ExpectRefused("SALE: DEPTNR=1; PRICE=1; QNTY=1; AMOUNT=5.555",
                  "Incorrect AMOUNT value (too many decimals) (line: 1)");
}

TEST_F(SaleByPriceAndAmount, SellsTheRoundedProductWithItsParticularsAsAComment) {
    ExpectSent("SALE: DEPTNR=1; PRICE=0.335; QNTY=3; AMOUNT=1.01",
               {Comment(" 3 x 0.335 @"), Sold(one, "00 00 01 01")});
}

TEST_F(SaleByPriceAndAmount, ComparesDigitsSoThatARoundedProductOfFullUnitsDiffers) {
    ExpectRefused("SALE: DEPTNR=1; PRICE=0.335; QNTY=3; AMOUNT=1.00",
                  "PRICE * QNTY <> AMOUNT (line: 1)");
}

TEST_F(SaleByPriceAndAmount, ComparesDigitsSoThatThePointDoesNotCount) {
    ExpectSent("SALE: DEPTNR=1; PRICE=1.5; QNTY=3; AMOUNT=45", {Sold("00 30 00", "00 00 01 50")});
}

TEST_F(SaleByPriceAndAmount, SellsAnAmountTruncatedByTheCallerAsOneUnit) {
    ExpectSent("SALE: DEPTNR=1; PRICE=0.33; QNTY=0.5; AMOUNT=0.16",
               {Comment(" 0.5 x 0.33 @"), Sold(one, "00 00 00 16")});
}

TEST_F(SaleByPriceAndAmount, SellsAnAmountRoundedAsTheRegisterDoesAsItIs) {
    ExpectSent("SALE: DEPTNR=1; PRICE=0.33; QNTY=0.5; AMOUNT=0.17",
               {Sold("00 05 00", "00 00 00 33")});
}

TEST_F(SaleByPriceAndAmount, GoesByTheRoundingOfTheRegister) {
    Ecr().settings.roundingType = 1;
    ExpectSent("SALE: DEPTNR=1; PRICE=0.33; QNTY=0.5; AMOUNT=0.16",
               {Sold("00 05 00", "00 00 00 33")});
    ExpectSent("SALE: DEPTNR=1; PRICE=0.33; QNTY=0.5; AMOUNT=0.17",
               {Comment(" 0.5 x 0.33 @"), Sold(one, "00 00 00 17")});
}

TEST_F(SaleByPriceAndAmount, RefusesATruncatedAmountOutOfRange) {
    ExpectRefused("SALE: DEPTNR=1; PRICE=2000000.01; QNTY=1.5; AMOUNT=3000000.01",
                  "Incorrect AMOUNT value (line: 1)");
    ExpectRefused("SALE: DEPTNR=1; PRICE=-1; QNTY=0.335; AMOUNT=-0.33",
                  "Incorrect AMOUNT value (line: 1)");
}

TEST_F(SaleByPriceAndAmount, TakesATruncatedAmountUpToTheEdgeOfTheField) {
    ExpectSent("SALE: DEPTNR=1; PRICE=999999.995; QNTY=1; AMOUNT=999999.99",
               {Comment(" 1 x 999999.995 @"), Sold(one, "99 99 99 99")});
    ExpectSent("SALE: DEPTNR=1; PRICE=0.005; QNTY=1; AMOUNT=0",
               {Comment(" 1 x 0.005 @"), Sold(one, "00 00 00 00")});
}

TEST_F(SaleByPriceAndAmount, LeavesARoundedAmountOutOfRangeToTheCheckOfTheItem) {
    ExpectRefused("SALE: DEPTNR=1; PRICE=2000000.01; QNTY=1.5; AMOUNT=3000000.02",
                  "Incorrect QNTY and PRICE values (line: 1)");
}

// What the register cannot print

TEST_F(ItemTheRegisterCannotPrint, IsSoldAsOneUnitAfterAComment) {
    struct {
        const char* parameters;
        const char* comment;
        const char* price;
    } const rows[] = {
        {"PRICE=0.335; QNTY=3", " 3 x 0.335 @", "00 00 01 01"},
        {"PRICE=1; QNTY=1.0005", " 1.0005 x 1.00 @", "00 00 01 00"},
        {"PRICE=0.5; QNTY=1000", " 1000 x 0.50 @", "00 05 00 00"},
        {"PRICE=0.01; QNTY=1000.001", " 1000.001 x 0.01 @", "00 00 10 00"},
        {"PRICE=1000000; QNTY=0.5", " 0.5 x 1000000.00 @", "50 00 00 00"},
        {"PRICE=1000000.01; QNTY=0.1", " 0.1 x 1000000.01 @", "10 00 00 00"},
        {"PRICE=-1.5; QNTY=-2", " -2 x -1.50 @", "00 00 03 00"},
        {"PRICE=-0.01; QNTY=-0.001", " -0.001 x -0.01 @", "00 00 00 00"},
    };
    for (const auto& row : rows) {
        ExpectSent(std::string("SALE: DEPTNR=1; ") + row.parameters,
                   {Comment(row.comment), Sold(one, row.price)});
    }
}

TEST_F(ItemTheRegisterCannotPrint, IsRoundedAsTheRegisterRounds) {
    ExpectSent("SALE: DEPTNR=1; PRICE=0.005; QNTY=1",
               {Comment(" 1 x 0.005 @"), Sold(one, "00 00 00 01")});
    Ecr().settings.roundingType = 1;
    ExpectSent("SALE: DEPTNR=1; PRICE=0.005; QNTY=1",
               {Comment(" 1 x 0.005 @"), Sold(one, "00 00 00 00")});
}

TEST_F(ItemTheRegisterCannotPrint, MustHaveATotalThatItCanPrint) {
    for (const char* parameters :
         {"PRICE=-1; QNTY=1", "PRICE=1; QNTY=-1", "PRICE=100000000; QNTY=1",
          "PRICE=999999.995; QNTY=1", "PRICE=1000.01; QNTY=1000.001"}) {
        ExpectRefused(std::string("SALE: DEPTNR=1; ") + parameters,
                      "Incorrect QNTY and PRICE values (line: 1)");
    }
}

TEST_F(ItemTheRegisterCannotPrint, MayHaveATotalOfTheLargestAmount) {
    ExpectSent("SALE: DEPTNR=1; PRICE=999999.994; QNTY=1",
               {Comment(" 1 x 999999.994 @"), Sold(one, "99 99 99 99")});
}

// The digits are counted, not the value: 1000000 has seven of them.
TEST_F(ItemTheRegisterCannotPrint, KeepsATotalAboveTheFieldByItsDigits) {
    ExpectSent("SALE: DEPTNR=1; PRICE=1000000; QNTY=1",
               {Comment(" 1 x 1000000.00 @"), Sold(one, "00 00 00 00")});
}

TEST_F(ItemTheRegisterCannotPrint, GetsItsCommentOnceWhenTheAmountReplacesIt) {
    ExpectSent("SALE: DEPTNR=1; PRICE=0.335; QNTY=3.1; AMOUNT=1.03",
               {Comment(" 3.1 x 0.335 @"), Sold(one, "00 00 01 03")});
}

TEST_F(ItemTheRegisterCannotPrint, IsReturnedInTheSameWay) {
    ExpectSent(
        "RETURN: DEPTNR=7; NAME=a; PRICE=0.335; QNTY=3",
        {Comment(" 3 x 0.335 @"), "b4 fiscal : 07 " + Hex("a", 18) + " 00 10 00 00 00 01 01"});
}

// The comment

/// Quantity 25 000..., of this many digits, price 0.00...04: a total of 1.
std::string SaleOfOne(std::size_t digits) {
    return "SALE: DEPTNR=1; QNTY=25" + std::string(digits - 2, '0') + "; PRICE=0." +
           std::string(digits - 1, '0') + "4";
}

TEST_F(PriceAndQuantityAsComments, ShareALineThatIsTwoCharactersShorterThanThePaper) {
    struct {
        Model model;
        std::size_t digits, commentLength, nameLength;
    } const rows[] = {{Model::Ocelot, 13, 35, 18},
                      {Model::Serval, 11, 31, 18},
                      {Model::Lynx, 5, 19, 18},
                      {Model::Puma, 11, 31, 18},
                      {Model::Margay, 5, 19, 20}};
    for (const auto& row : rows) {
        const std::string quantity = "25" + std::string(row.digits - 2, '0');
        const std::string price = "0." + std::string(row.digits - 1, '0') + "4";
        const std::string line = " " + quantity + " x " + price + " @";
        ASSERT_EQ(line.size(), row.commentLength - 1);
        ExpectSent(
            row.model, SaleOfOne(row.digits),
            {Comment(line, row.commentLength), Sold("01", "", row.nameLength, one, "00 00 01 00")});
    }
}

TEST_F(PriceAndQuantityAsComments, TakeTwoLinesWhenOneIsACharacterTooShort) {
    struct {
        Model model;
        std::size_t digits, commentLength, nameLength;
    } const rows[] = {{Model::Ocelot, 13, 35, 18},
                      {Model::Serval, 11, 31, 18},
                      {Model::Lynx, 5, 19, 18},
                      {Model::Puma, 11, 31, 18},
                      {Model::Margay, 5, 19, 20}};
    for (const auto& row : rows) {
        // One digit more in the quantity makes a total of 10.
        const std::string quantity = "25" + std::string(row.digits - 1, '0');
        const std::string price = "0." + std::string(row.digits - 1, '0') + "4";
        ExpectSent(row.model, "SALE: DEPTNR=1; QNTY=" + quantity + "; PRICE=" + price,
                   {Comment(" " + quantity + " x", row.commentLength),
                    Comment("  " + price + " @", row.commentLength),
                    Sold("01", "", row.nameLength, one, "00 00 10 00")});
    }
}

TEST_F(PriceAndQuantityAsComments, MustFitALineEach) {
    const auto saleOf = [](const std::string& quantity, const std::string& price) {
        return "SALE: DEPTNR=1; QNTY=" + quantity + "; PRICE=" + price;
    };
    const std::string sold = Sold(one, "00 00 00 00");
    ExpectSent(Model::Lynx, saleOf("0.00000000000001", "1"),
               {Comment(" 0.00000000000001 x", 19), Comment("  1.00 @", 19), sold});
    ExpectRefused(Model::Lynx, saleOf("0.000000000000001", "1"), "TEXT is too long (line: 1)");
    ExpectSent(Model::Lynx, saleOf("1", "0.0000000000001"),
               {Comment(" 1 x", 19), Comment("  0.0000000000001 @", 19), sold});
    ExpectRefused(Model::Lynx, saleOf("1", "0.00000000000001"), "TEXT is too long (line: 1)");
}

TEST_F(PriceAndQuantityAsComments, ShowThePriceWithTwoDecimalsAtLeast) {
    ExpectSent("SALE: DEPTNR=1; PRICE=3; QNTY=1.0001",
               {Comment(" 1.0001 x 3.00 @"), Sold(one, "00 00 03 00")});
    ExpectSent("SALE: DEPTNR=1; PRICE=3.5; QNTY=1.0001",
               {Comment(" 1.0001 x 3.50 @"), Sold(one, "00 00 03 50")});
    ExpectSent("SALE: DEPTNR=1; PRICE=3.25; QNTY=1.0001",
               {Comment(" 1.0001 x 3.25 @"), Sold(one, "00 00 03 25")});
}

// By PLU

std::string PluSold(const std::string& number, const std::string& quantity,
                    const std::string& price) {
    return "b5 fiscal : " + number + " " + quantity + (price.empty() ? "" : " ") + price;
}
const char plu1[] = "00 00 00 00 00 00 01";
const char noPrice[] = "00 00 00 00";

TEST_F(PluSale, IsOneUnitAtTheProgrammedPriceByDefault) {
    ExpectSent("SALE: PLUNR=1", {PluSold(plu1, one, noPrice)});
}

TEST_F(PluSale, HasANumberOfUpTo13Digits) {
    ExpectSent("SALE: PLUNR=1234567890123", {PluSold("01 23 45 67 89 01 23", one, noPrice)});
    ExpectSent("SALE: PLUNR=9999999999999", {PluSold("09 99 99 99 99 99 99", one, noPrice)});
    for (const char* number : {"0", "10000000000000", "1.5", "-1"}) {
        ExpectRefused("SALE: PLUNR=" + std::string(number), "Incorrect PLUNR value (line: 1)");
    }
}

TEST_F(PluSale, HasAQuantityOfUpToSixDigitsAndThreeDecimals) {
    ExpectSent("SALE: PLUNR=1; QNTY=2.5", {PluSold(plu1, "00 25 00", noPrice)});
    ExpectSent("SALE: PLUNR=1; QNTY=999.999", {PluSold(plu1, "99 99 99", noPrice)});
    ExpectSent("SALE: PLUNR=1; QNTY=0", {PluSold(plu1, "00 00 00", noPrice)});
    for (const char* quantity : {"0.0001", "1000000", "1000.001", "-1"}) {
        ExpectRefused("SALE: PLUNR=1; QNTY=" + std::string(quantity),
                      "Incorrect QNTY value (line: 1)");
    }
}

// The digits are counted, not the value: what is above the field loses its high digits.
TEST_F(PluSale, SendsTheLowDigitsOfAThousand) {
    ExpectSent("SALE: PLUNR=1; QNTY=1000", {PluSold(plu1, "00 00 00", noPrice)});
    ExpectSent("SALE: PLUNR=1; QNTY=1234", {PluSold(plu1, "23 40 00", noPrice)});
    ExpectSent("SALE: PLUNR=1; QNTY=999999", {PluSold(plu1, "99 90 00", noPrice)});
}

TEST_F(PluSale, MayHaveAPriceOfItsOwn) {
    ExpectSent("SALE: PLUNR=1; PRICE=1.5", {PluSold(plu1, one, "00 00 01 50")});
    ExpectSent("SALE: PLUNR=1; PRICE=999999.99; QNTY=2",
               {PluSold(plu1, "00 20 00", "99 99 99 99")});
    ExpectSent("SALE: PLUNR=1; PRICE=99999999", {PluSold(plu1, one, "99 99 99 00")});
    for (const char* price : {"1.005", "100000000", "-0.01"}) {
        ExpectRefused("SALE: PLUNR=1; PRICE=" + std::string(price),
                      "Incorrect PRICE value (line: 1)");
    }
}

TEST_F(PluSale, HasNoPriceInTheFirstProtocolVersion) {
    for (const Model model : {Model::Ocelot, Model::Serval, Model::Lynx, Model::Puma}) {
        Ecr().Be(model, 1);
        ExpectSent(model, "SALE: PLUNR=1", {PluSold(plu1, one, "")});
        ExpectRefused(model, "SALE: PLUNR=1; PRICE=1", "Too many parameters (line: 1)");
    }
}

TEST_F(PluSale, HasAPriceFieldInTheSecondProtocolVersion) {
    for (const Model model : allModels) {
        Ecr().Be(model, 2);
        ExpectSent(model, "SALE: PLUNR=1", {PluSold(plu1, one, noPrice)});
    }
}

TEST_F(PluSale, HasNoNameAndNoAmount) {
    ExpectRefused("SALE: PLUNR=1; NAME=a", "Too many parameters (line: 1)");
    ExpectRefused("SALE: PLUNR=1; AMOUNT=1", "Too many parameters (line: 1)");
}

TEST_F(PluSale, ChecksNumberThenQuantityThenPrice) {
    ExpectRefused("SALE: PLUNR=0; QNTY=-1; PRICE=-1", "Incorrect PLUNR value (line: 1)");
    ExpectRefused("SALE: PLUNR=1; QNTY=-1; PRICE=-1", "Incorrect QNTY value (line: 1)");
}

TEST_F(PluSale, WantsNumbers) {
    for (const char* parameters : {"PLUNR=x", "PLUNR=1; QNTY=x", "PLUNR=1; PRICE=x"}) {
        ExpectRefused(std::string("SALE: ") + parameters, "Wrong number format (line: 1)");
    }
}

}  // namespace
