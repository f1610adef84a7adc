#!/usr/bin/env php
<?php
// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: 0BSD

/*
 * Sells goods on a fiscal register of the network: each sale once, whatever happens in between.
 *
 *     sell.php ID NAME PRICE [NAME PRICE]...
 *     sell.php ID                               again, what is stored under the ID
 *
 * ID is the sale's own in the records of the shop, and the key of its job: the same sale always has the
 * same one, and no other sale of any till has it. Every sale has a folder. Its command file is there
 * before anything is sent, and the number of its receipt in the end.
 *
 * Exit status: 0 printed; 1 not printed, and never to be under this ID; 2 not printed or not known: sell
 * it again under the same ID; 101 somebody has to look at the paper. SERVICE is the address of voltisd,
 * REGISTER the register's name there, TOKEN_FILE a file that holds the token, SALES the folder of the
 * sales, WAIT the seconds until it gives up.
 */
declare(strict_types=1);

const AT_ONCE = 20;  // seconds that one request waits for its receipt

function setting(string $name, string $otherwise): string
{
    return getenv($name) ?: $otherwise;
}

define('SERVICE', setting('SERVICE', 'http://127.0.0.1:8631'));
define('TOKEN_FILE', setting('TOKEN_FILE', 'token'));

// --- write ---------------------------------------------------------------------------------------

function quoted(string $text): string
{
    // A line feed would begin another command. A backslash at the end would take the closing quote
    // for a part of the text.
    $text = str_replace('"', '\\"', preg_replace('/[\x00-\x1f\x7f]/', ' ', $text));
    return '"' . $text . (str_ends_with($text, '\\') ? ' "' : '"');
}

function command_file(array $goods): string
{
    $lines = '';
    foreach ($goods as [$name, $price]) {
        $lines .= 'SALE: DEPTNR=1; NAME=' . quoted($name) . "; AMOUNT=$price\n";
    }
    return $lines . "TENDER\n";
}

function read(string $name): string
{
    return is_file($name) ? file_get_contents($name) : '';
}

function write(string $name, string $text): void
{
    file_put_contents("$name.new", $text) === strlen($text) || exit(1);  // whole or not at all
    rename("$name.new", $name);
}

function file_of(string $sale, string $name): string
{
    return setting('SALES', 'sales') . "/$sale/$name";
}

// --- send, and send again ------------------------------------------------------------------------

// The status, the header Retry-After and the JSON of the answer; null: there was no answer.
function post(string $sale, string $content, int $seconds): ?array
{
    $headers = [
        'Authorization: Bearer ' . trim(read(TOKEN_FILE)),
        'Content-Type: text/plain; charset=utf-8',
        "Idempotency-Key: $sale",
        "Prefer: wait=$seconds",
        'Connection: close',
    ];
    $options = ['method' => 'POST', 'header' => $headers, 'content' => $content, 'protocol_version' => 1.1,
                'timeout' => $seconds + 10, 'follow_location' => 0, 'ignore_errors' => true];
    $stream = @fopen(SERVICE . '/v1/registers/' . setting('REGISTER', 'default') . '/jobs', 'r', false,
                     stream_context_create(['http' => $options]));
    if ($stream === false) {
        return null;
    }
    $head = stream_get_meta_data($stream)['wrapper_data'];
    $answer = json_decode(stream_get_contents($stream), true);  // null: of something between
    fclose($stream);
    $after = preg_grep('/^Retry-After: *[0-9]+ *$/i', $head);
    return [(int) explode(' ', $head[0])[1], $after ? (int) substr(reset($after), 12) : null,
            is_array($answer) ? $answer : []];
}

function kind_of(array $answer): string
{
    return substr(strrchr($answer['type'] ?? '', ':') ?: ':', 1);
}

// False: the same request again, later, may have another answer.
function decides(int $status, array $answer): bool
{
    if ($status === 200) {
        return isset($answer['verdict']);
    }
    if ($status >= 500) {
        return in_array(kind_of($answer), ['not-printed', 'part', 'in-doubt', 'forgotten'], true);
    }
    return $status >= 400 && !in_array($status, [408, 409, 429], true);
}

// What decides: the status, and the answer. null: there was no such answer in time.
function ask(string $sale, string $content): ?array
{
    $end = microtime(true) + (float) setting('WAIT', '120');
    $pause = 0.5;
    while (($left = $end - microtime(true)) > 0) {
        $told = post($sale, $content, min(AT_ONCE, (int) $left));
        if ($told !== null && decides($told[0], $told[2])) {
            return [$told[0], $told[2]];
        }
        $pause = min(2 * $pause, 10);
        $wanted = min($told[1] ?? $pause, $end - microtime(true));
        usleep((int) (1e6 * max(0, $wanted)));
    }
    return null;
}

// --- decide --------------------------------------------------------------------------------------

function say(string $sale, string $what, ?string ...$hints): void
{
    echo "$sale: $what\n";
    foreach (array_filter($hints) as $hint) {
        echo "  $hint\n";
    }
}

function decide(string $sale, ?array $told): int
{
    if ($told === null) {
        say($sale, 'not known: no answer in time', 'Sell it again under the same ID.');
        return 2;
    }
    [$status, $answer] = $told;
    if ($status === 200) {
        return decide_printed($sale, $answer);
    }
    $kind = kind_of($answer);
    $what = $answer['detail'] ?? "status $status";
    $hint = $answer['explanation']['what_to_do'] ?? null;
    if (in_array($kind, ['part', 'in-doubt', 'forgotten'], true)) {
        return decide_in_doubt($sale, $answer, $what, $hint);
    }
    if ($kind === 'not-printed') {
        say($sale, "not printed: $what", $hint, 'Then sell it again under the same ID.');
        return 2;
    }
    if ($kind === 'withdrawn') {
        say($sale, "not printed: $what", 'A new sale needs a new ID.');
        return 1;
    }
    if (in_array($status, [400, 413, 415, 422], true)) {
        say($sale, "not printed, a mistake of the program: $what", $hint);
        return 1;
    }
    say($sale, "refused: $what", 'Look at the settings. Then sell it again under the same ID.');
    return 2;
}

function decide_printed(string $sale, array $job): int
{
    $number = $job['outcome']['receipt']['after'] ?? '?';
    write(file_of($sale, 'receipt'), "$number\n");
    if ($job['exit_code'] === 0 || $job['resolved'] !== null) {
        say($sale, "printed, receipt $number");
        return 0;
    }
    $message = $job['outcome']['driver']['message'] ?? '?';
    say($sale, "printed, receipt $number, but: $message", 'Look at the register before the next sale.');
    return 101;
}

function decide_in_doubt(string $sale, array $answer, string $what, ?string $hint): int
{
    $verdict = $answer['job']['verdict'] ?? 'unknown';
    $commands = $answer['job']['outcome']['commands'] ?? [];
    $done = 'at least ' . ($commands['at_least'] ?? 0) . ' of ' . ($commands['of'] ?? '?') . ' commands';
    $page = SERVICE . (isset($answer['job']) ? "/jobs/{$answer['job']['number']}" : '/');
    say(
        $sale,
        "$verdict, $done: $what",
        $hint,
        'Look at the paper. Finish or cancel an open receipt on the register.',
        "Then record what the paper says: $page"
    );
    return 101;
}

// -------------------------------------------------------------------------------------------------

function mistake(string $sale, array $goods): ?string
{
    if (!preg_match('/\A[0-9A-Za-z][0-9A-Za-z-]{0,99}\z/', $sale)) {
        return 'ID has letters, digits and -';
    }
    foreach ($goods as $pair) {
        if (count($pair) !== 2) {
            return 'each NAME wants a PRICE';
        }
    }
    foreach ($goods as [, $price]) {
        if (!preg_match('/\A[0-9]{1,6}(\.[0-9]{1,2})?\z/', $price)) {
            return 'PRICE is up to 999999.99';
        }
    }
    $stored = read(file_of($sale, 'sale.txt'));
    if ($goods === [] && $stored === '') {
        return 'nothing is stored under this ID';
    }
    if ($goods !== [] && $stored !== '' && $stored !== command_file($goods)) {
        return 'other goods were sold under this ID';
    }
    return preg_match('/\A\s*\S+\s*\z/', read(TOKEN_FILE)) ? null : 'there is no token in ' . TOKEN_FILE;
}

function main(array $arguments): int
{
    $sale = $arguments[0] ?? '';
    $goods = array_chunk(array_slice($arguments, 1), 2);
    $mistake = mistake($sale, $goods);
    if ($mistake !== null) {
        fwrite(STDERR, "sell: $mistake\n");
        return 1;
    }
    $file = file_of($sale, 'sale.txt');
    if (!is_dir(dirname($file))) {
        mkdir(dirname($file), 0777, true);
    }
    if ($goods !== []) {
        write($file, command_file($goods));
    }
    return decide($sale, ask($sale, read($file)));
}

exit(main(array_slice($argv, 1)));
