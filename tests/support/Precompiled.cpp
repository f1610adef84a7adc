// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Only carries the headers that all tests have compiled once.
int main() {}
