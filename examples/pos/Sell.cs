// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: 0BSD

// Sells goods on the fiscal register: each sale once, whatever happens in between.
//
//     mcs -r:System.Runtime.Serialization,System.Xml Sell.cs
//     mono Sell.exe KIND ID NAME PRICE [NAME PRICE]...
//
// KIND is whole, or first, next and last for a receipt that is sent in several files. ID is the sale's
// own, in the records of the point of sale; the same sale always has the same one. Every sale has a
// folder with its command file; the number of its receipt is written there, too.
//
// Exit status: 0 printed, 1 a mistake of the program, 2 not printed: sell it again under the same ID,
// 101 somebody has to look at the register. VOLTISCTL names the program when it is not on PATH, SALES
// the folder of the sales, WAIT the seconds to wait for another till.
using System;
using System.Collections.Generic;
using System.ComponentModel;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Runtime.Serialization.Json;
using System.Text;
using System.Text.RegularExpressions;
using System.Xml;

static class Sell
{
    static readonly Dictionary<string, string> Hints = new Dictionary<string, string> {
        {"100", "Is the register on and connected?"},
        {"101", "Is the register busy?"},
        {"104", "Turn the key to REG."},
        {"105", "Finish or cancel the open receipt on the register."},
        {"106", "Finish or cancel the open receipt on the register."},
        {"150", "Is the register on and connected?"},
        {"201", "Put in paper."},
        {"202", "Put in paper."},
        {"203", "The printer is out of order."},
    };

    static string Setting(string name, string otherwise)
    {
        string value = Environment.GetEnvironmentVariable(name);
        return string.IsNullOrEmpty(value) ? otherwise : value;
    }

    // --- write -----------------------------------------------------------------------------------

    static string Quoted(string text)
    {
        // A line feed would begin another command. A backslash at the end would take the closing
        // quote for a part of the text.
        text = Regex.Replace(text, "[\\x00-\\x1f\\x7f]", " ").Replace("\"", "\\\"");
        return '"' + text + (text.EndsWith("\\", StringComparison.Ordinal) ? " \"" : "\"");
    }

    static string CommandFile(string kind, string[] goods)
    {
        var text = new StringBuilder(kind == "next" || kind == "last" ? "CONTINUE\n" : "");
        for (int i = 0; i < goods.Length; i += 2)
            text.Append("SALE: DEPTNR=1; NAME=" + Quoted(goods[i]) + "; AMOUNT=" + goods[i + 1] + "\n");
        return text.Append(kind == "whole" || kind == "last" ? "TENDER\n" : "CONTINUE\n").ToString();
    }

    // --- run and read ----------------------------------------------------------------------------

    // Without a time limit: a run ends by itself, and one that is killed leaves its outcome open. No
    // word of the command line needs quotes: the file is named from its folder.
    static XmlElement Run(string sale)
    {
        var start = new ProcessStartInfo(Setting("VOLTISCTL", "voltisctl")) {
            Arguments = "run sale.txt --job " + sale + " --from utf-8 --wait " + Setting("WAIT", "60") + " --json",
            WorkingDirectory = FolderOf(sale),
            UseShellExecute = false,
            RedirectStandardOutput = true,
            StandardOutputEncoding = Encoding.UTF8
        };
        try
        {
            using (Process process = Process.Start(start))
            {
                string told = process.StandardOutput.ReadToEnd();
                process.WaitForExit();
                return Parsed(told);
            }
        }
        catch (Win32Exception)  // not started
        {
            return null;
        }
    }

    // .NET reads JSON as XML: a member is an element, and null an empty one.
    static XmlElement Parsed(string told)
    {
        byte[] bytes = Encoding.UTF8.GetBytes(told);
        try
        {
            var document = new XmlDocument();
            var quotas = XmlDictionaryReaderQuotas.Max;
            using (XmlReader reader = JsonReaderWriterFactory.CreateJsonReader(bytes, quotas)) document.Load(reader);
            return document.DocumentElement;
        }
        catch (XmlException)  // ended before it could tell
        {
            return null;
        }
    }

    // A member, and one of a member; "" for null, and where there is none.
    static string Text(XmlElement answer, string name)
    {
        XmlElement member = answer[name];
        return member == null ? "" : member.InnerText;
    }

    static string Text(XmlElement answer, string name, string inner)
    {
        XmlElement member = answer[name];
        return member == null ? "" : Text(member, inner);
    }

    static string Number(string text)
    {
        return text == "" ? "?" : text;
    }

    // --- decide ----------------------------------------------------------------------------------

    static void Say(string sale, string what, params string[] hints)
    {
        Console.WriteLine(sale + ": " + what);
        foreach (string hint in hints)
            if (hint != null) Console.WriteLine("  " + hint);
    }

    static int Decide(string sale, string kind, XmlElement answer)
    {
        if (answer == null)
        {
            Say(sale, "no answer", "Sell it again under the same ID.");
            return 2;
        }
        string reason = Text(answer, "reason"), hint;
        string message = (reason != "" ? reason : Text(answer, "driver", "message")).Replace('\n', ' ');
        Hints.TryGetValue(Text(answer, "driver", "error_code"), out hint);
        string verdict = Text(answer, "verdict");
        int code = int.Parse(Text(answer, "exit_code"));
        if (verdict == "printed")
            DecidePrinted(sale, kind, answer, message);
        else if (verdict != "not-printed")
            DecideInDoubt(sale, answer, message, hint);
        else if (code == 1)
            Say(sale, "not printed, a mistake of the program: " + message);
        else
            Say(sale, "not printed: " + message, hint, "Then sell it again under the same ID.");
        return code;
    }

    static void DecidePrinted(string sale, string kind, XmlElement answer, string message)
    {
        string number = Number(Text(answer, "receipt", "after"));
        if (Text(answer, "exit_code") != "0")
            Say(sale, "printed, receipt " + number + ", but: " + message,
                "Look at the register before the next sale.");
        else if (kind == "first" || kind == "next")
            Say(sale, "printed, receipt " + number + " is open, " +
                      Text(answer, "receipt", "subtotal") + " to pay");
        else
            Say(sale, "printed, receipt " + number);
        if (kind == "whole" || kind == "last")
            File.WriteAllText(Path.Combine(FolderOf(sale), "receipt"), number + "\n");
    }

    static void DecideInDoubt(string sale, XmlElement answer, string message, string hint)
    {
        string certain = "at least " + Text(answer, "commands", "at_least") + " of " +
                         Number(Text(answer, "commands", "of")) + " commands";
        Say(sale, Text(answer, "verdict") + ", " + certain + ": " + message, hint,
            "Look at the paper. Finish or cancel an open receipt on the register.",
            "Then: voltisctl resolve " + sale + " --as printed, or not-printed, --note WHY");
    }

    // ---------------------------------------------------------------------------------------------

    static string FolderOf(string sale)
    {
        return Path.Combine(Setting("SALES", "sales"), sale);
    }

    static string Mistake(string kind, string sale, string[] goods)
    {
        if (!new[] { "whole", "first", "next", "last" }.Contains(kind))
            return "KIND is whole, first, next or last";
        if (!Regex.IsMatch(sale, @"\A[0-9A-Za-z][0-9A-Za-z-]*\z")) return "ID has letters, digits and -";
        if (goods.Length == 0 || goods.Length % 2 != 0) return "each NAME wants a PRICE";
        bool priced = goods.Where((word, i) => i % 2 == 1)
                          .All(price => Regex.IsMatch(price, @"\A[0-9]{1,6}(\.[0-9]{1,2})?\z"));
        return priced ? null : "PRICE is up to 999999.99";
    }

    static int Main(string[] arguments)
    {
        string kind = arguments.ElementAtOrDefault(0) ?? "", sale = arguments.ElementAtOrDefault(1) ?? "";
        string[] goods = arguments.Skip(2).ToArray();
        string mistake = Mistake(kind, sale, goods);
        if (mistake != null)
        {
            Console.Error.WriteLine("sell: " + mistake);
            return 1;
        }
        Directory.CreateDirectory(FolderOf(sale));
        File.WriteAllText(Path.Combine(FolderOf(sale), "sale.txt"), CommandFile(kind, goods));  // in UTF-8
        return Decide(sale, kind, Run(sale));
    }
}
