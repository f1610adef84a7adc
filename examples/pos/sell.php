#!/usr/bin/env php
<?php
// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: 0BSD

/*
 * Sells goods on the fiscal register: each sale once, whatever happens in between.
 *
 *     sell.php KIND ID NAME PRICE [NAME PRICE]...
 *
 * KIND is whole, or first, next and last for a receipt that is sent in several files. ID is the
 * sale's own, in the records of the point of sale; the same sale always has the same one. Every sale
 * has a folder with its command file; the number of its receipt is written there, too.
 *
 * Exit status: 0 printed, 1 a mistake of the program, 2 not printed: sell it again under the same ID,
 * 101 somebody has to look at the register. VOLTISCTL names the program when it is not on PATH, SALES
 * the folder of the sales, WAIT the seconds to wait for another till.
 */
declare(strict_types=1);

const HINTS = [
    100 => 'Is the register on and connected?',
    101 => 'Is the register busy?',
    104 => 'Turn the key to REG.',
    105 => 'Finish or cancel the open receipt on the register.',
    106 => 'Finish or cancel the open receipt on the register.',
    150 => 'Is the register on and connected?',
    201 => 'Put in paper.',
    202 => 'Put in paper.',
    203 => 'The printer is out of order.',
];

// --- write ---------------------------------------------------------------------------------------

function quoted(string $text): string
{
    // A line feed would begin another command. A backslash at the end would take the closing quote
    // for a part of the text.
    $text = str_replace('"', '\\"', preg_replace('/[\x00-\x1f\x7f]/', ' ', $text));
    return '"' . $text . (str_ends_with($text, '\\') ? ' "' : '"');
}

function command_file(string $kind, array $goods): string
{
    $lines = in_array($kind, ['next', 'last'], true) ? ['CONTINUE'] : [];
    foreach ($goods as [$name, $price]) {
        $lines[] = 'SALE: DEPTNR=1; NAME=' . quoted($name) . "; AMOUNT=$price";
    }
    $lines[] = in_array($kind, ['whole', 'last'], true) ? 'TENDER' : 'CONTINUE';
    return implode("\n", $lines) . "\n";
}

// --- run and read --------------------------------------------------------------------------------

// Without a time limit: a run ends by itself, and one that is killed leaves its outcome open. The
// words go to the program as they are, without a shell.
function run(string $sale, string $file): ?array
{
    $command = [getenv('VOLTISCTL') ?: 'voltisctl', 'run', $file, '--job', $sale, '--from', 'utf-8',
                '--wait', getenv('WAIT') ?: '60', '--json'];
    $process = @proc_open($command, [['file', '/dev/null', 'r'], ['pipe', 'w']], $pipes);
    if ($process === false) {
        return null;
    }
    $told = stream_get_contents($pipes[1]);
    fclose($pipes[1]);
    proc_close($process);
    return json_decode($told, true);  // null: ended before it could tell
}

// --- decide --------------------------------------------------------------------------------------

function say(string $sale, string $what, ?string ...$hints): void
{
    echo "$sale: $what\n";
    foreach (array_filter($hints) as $hint) {
        echo "  $hint\n";
    }
}

function decide(string $sale, string $kind, ?array $answer): int
{
    if ($answer === null) {
        say($sale, 'no answer', 'Sell it again under the same ID.');
        return 2;
    }
    $message = str_replace("\n", ' ', $answer['reason'] ?? $answer['driver']['message'] ?? '');
    $hint = HINTS[$answer['driver']['error_code'] ?? 0] ?? null;
    if ($answer['verdict'] === 'printed') {
        decide_printed($sale, $kind, $answer, $message);
    } elseif ($answer['verdict'] !== 'not-printed') {
        decide_in_doubt($sale, $answer, $message, $hint);
    } elseif ($answer['exit_code'] === 1) {
        say($sale, "not printed, a mistake of the program: $message");
    } else {
        say($sale, "not printed: $message", $hint, 'Then sell it again under the same ID.');
    }
    return $answer['exit_code'];
}

function decide_printed(string $sale, string $kind, array $answer, string $message): void
{
    $number = $answer['receipt']['after'] ?? '?';
    if ($answer['exit_code'] !== 0) {
        say($sale, "printed, receipt $number, but: $message", 'Look at the register before the next sale.');
    } elseif (in_array($kind, ['first', 'next'], true)) {
        say($sale, "printed, receipt $number is open, {$answer['receipt']['subtotal']} to pay");
    } else {
        say($sale, "printed, receipt $number");
    }
    if (in_array($kind, ['whole', 'last'], true)) {
        file_put_contents(folder_of($sale) . '/receipt', "$number\n");
    }
}

function decide_in_doubt(string $sale, array $answer, string $message, ?string $hint): void
{
    $commands = $answer['commands'];
    $certain = "at least {$commands['at_least']} of " . ($commands['of'] ?? '?') . ' commands';
    say(
        $sale,
        "{$answer['verdict']}, $certain: $message",
        $hint,
        'Look at the paper. Finish or cancel an open receipt on the register.',
        "Then: voltisctl resolve $sale --as printed, or not-printed, --note WHY"
    );
}

// -------------------------------------------------------------------------------------------------

function folder_of(string $sale): string
{
    return (getenv('SALES') ?: 'sales') . "/$sale";
}

function mistake(string $kind, string $sale, array $goods): ?string
{
    if (!in_array($kind, ['whole', 'first', 'next', 'last'], true)) {
        return 'KIND is whole, first, next or last';
    }
    if (!preg_match('/\A[0-9A-Za-z][0-9A-Za-z-]*\z/', $sale)) {
        return 'ID has letters, digits and -';
    }
    foreach ($goods ?: [[]] as $pair) {
        if (count($pair) !== 2) {
            return 'each NAME wants a PRICE';
        }
    }
    foreach ($goods as [, $price]) {
        if (!preg_match('/\A[0-9]{1,6}(\.[0-9]{1,2})?\z/', $price)) {
            return 'PRICE is up to 999999.99';
        }
    }
    return null;
}

function main(array $arguments): int
{
    $kind = $arguments[0] ?? '';
    $sale = $arguments[1] ?? '';
    $goods = array_chunk(array_slice($arguments, 2), 2);
    $mistake = mistake($kind, $sale, $goods);
    if ($mistake !== null) {
        fwrite(STDERR, "sell: $mistake\n");
        return 1;
    }
    $file = folder_of($sale) . '/sale.txt';
    if (!is_dir(dirname($file))) {
        mkdir(dirname($file), 0777, true);
    }
    if (file_put_contents($file, command_file($kind, $goods)) === false) {
        return 1;
    }
    return decide($sale, $kind, run($sale, $file));
}

exit(main(array_slice($argv, 1)));
