// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: 0BSD

// Sells goods on a fiscal register of the network: each sale once, whatever happens in between.
//
//     mcs -r:System.Net.Http,System.Runtime.Serialization,System.Xml Sell.cs
//     mono Sell.exe ID NAME PRICE [NAME PRICE]...
//     mono Sell.exe ID                               again, what is stored under the ID
//
// ID is the sale's own in the records of the shop, and the key of its job: the same sale always has the
// same one, and no other sale of any till has it. Every sale has a folder. Its command file is there
// before anything is sent, and the number of its receipt in the end.
//
// Exit status: 0 printed; 1 not printed, and never to be under this ID; 2 not printed or not known: sell
// it again under the same ID; 101 somebody has to look at the paper. SERVICE is the address of voltisd,
// REGISTER the register's name there, TOKEN_FILE a file that holds the token, SALES the folder of the
// sales, WAIT the seconds until it gives up.
using System;
using System.Diagnostics;
using System.Globalization;
using System.IO;
using System.Linq;
using System.Net.Http;
using System.Net.Http.Headers;
using System.Runtime.Serialization.Json;
using System.Text;
using System.Text.RegularExpressions;
using System.Threading;
using System.Threading.Tasks;
using System.Xml;

static class Sell
{
    const int AtOnce = 20;  // seconds that one request waits for its receipt

    static string Setting(string name, string otherwise)
    {
        string value = Environment.GetEnvironmentVariable(name);
        return string.IsNullOrEmpty(value) ? otherwise : value;
    }

    static readonly string Service = Setting("SERVICE", "http://127.0.0.1:8631");
    static readonly string TokenFile = Setting("TOKEN_FILE", "token");

    // --- write -----------------------------------------------------------------------------------

    static string Quoted(string text)
    {
        // A line feed would begin another command. A backslash at the end would take the closing
        // quote for a part of the text.
        text = Regex.Replace(text, "[\\x00-\\x1f\\x7f]", " ").Replace("\"", "\\\"");
        return '"' + text + (text.EndsWith("\\", StringComparison.Ordinal) ? " \"" : "\"");
    }

    static string CommandFile(string[] goods)
    {
        var text = new StringBuilder();
        for (int i = 0; i < goods.Length; i += 2)
            text.Append("SALE: DEPTNR=1; NAME=" + Quoted(goods[i]) + "; AMOUNT=" + goods[i + 1] + "\n");
        return text.Append("TENDER\n").ToString();
    }

    static string Read(string name)
    {
        return File.Exists(name) ? File.ReadAllText(name) : "";
    }

    static void Write(string name, string text)
    {
        File.WriteAllText(name + ".new", text);  // in UTF-8; whole or not at all
        File.Delete(name);
        File.Move(name + ".new", name);
    }

    static string FileOf(string sale, string name)
    {
        return Path.Combine(Setting("SALES", "sales"), sale, name);
    }

    // --- send, and send again --------------------------------------------------------------------

    sealed class Told
    {
        public int Status;
        public double? RetryAfter;
        public XmlElement Answer;  // null: it is no JSON, but of something between
    }

    static HttpRequestMessage Request(string sale, string content, int seconds)
    {
        string url = Service + "/v1/registers/" + Setting("REGISTER", "default") + "/jobs";
        var request = new HttpRequestMessage(HttpMethod.Post, url);
        request.Headers.Authorization = new AuthenticationHeaderValue("Bearer", Read(TokenFile).Trim());
        request.Headers.Add("Idempotency-Key", sale);
        request.Headers.Add("Prefer", "wait=" + seconds);
        request.Headers.ExpectContinue = false;
        request.Content = new StringContent(content, Encoding.UTF8, "text/plain");
        return request;
    }

    // null: there was no answer.
    static Told Post(string sale, string content, int seconds)
    {
        var handler = new HttpClientHandler { AllowAutoRedirect = false };
        try
        {
            using (var client = new HttpClient(handler) { Timeout = TimeSpan.FromSeconds(seconds + 10) })
            using (HttpRequestMessage request = Request(sale, content, seconds))
            using (HttpResponseMessage response = client.SendAsync(request).GetAwaiter().GetResult())
            {
                RetryConditionHeaderValue after = response.Headers.RetryAfter;
                return new Told {
                    Status = (int)response.StatusCode,
                    RetryAfter = after != null && after.Delta.HasValue ? after.Delta.Value.TotalSeconds : (double?)null,
                    Answer = Parsed(response.Content.ReadAsByteArrayAsync().GetAwaiter().GetResult())
                };
            }
        }
        catch (Exception failure) when (failure is HttpRequestException || failure is IOException ||
                                        failure is TaskCanceledException)
        {
            return null;
        }
    }

    // .NET reads JSON as XML: a member is an element, and null an empty one.
    static XmlElement Parsed(byte[] told)
    {
        try
        {
            var document = new XmlDocument();
            var quotas = XmlDictionaryReaderQuotas.Max;
            using (XmlReader reader = JsonReaderWriterFactory.CreateJsonReader(told, quotas)) document.Load(reader);
            return document.DocumentElement;
        }
        catch (XmlException)
        {
            return null;
        }
    }

    // A member of a member, and so on; "" for null, and where there is none.
    static string Text(XmlElement answer, params string[] names)
    {
        foreach (string name in names) answer = answer == null ? null : answer[name];
        return answer == null ? "" : answer.InnerText;
    }

    static string KindOf(XmlElement answer)
    {
        return Text(answer, "type").Split(':').Last();
    }

    // False: the same request again, later, may have another answer.
    static bool Decides(Told told)
    {
        if (told == null) return false;
        if (told.Status == 200) return Text(told.Answer, "verdict") != "";
        if (told.Status >= 500)
            return new[] { "not-printed", "part", "in-doubt", "forgotten" }.Contains(KindOf(told.Answer));
        return told.Status >= 400 && !new[] { 408, 409, 429 }.Contains(told.Status);
    }

    // What decides; null: there was no such answer in time.
    static Told Ask(string sale, string content)
    {
        double wait = double.Parse(Setting("WAIT", "120"), CultureInfo.InvariantCulture);
        double pause = 0.5;
        for (Stopwatch clock = Stopwatch.StartNew(); clock.Elapsed.TotalSeconds < wait;)
        {
            Told told = Post(sale, content, Math.Min(AtOnce, (int)(wait - clock.Elapsed.TotalSeconds)));
            if (Decides(told)) return told;
            pause = Math.Min(2 * pause, 10);
            double wanted = told != null && told.RetryAfter.HasValue ? told.RetryAfter.Value : pause;
            double left = Math.Max(0, wait - clock.Elapsed.TotalSeconds);
            Thread.Sleep(TimeSpan.FromSeconds(Math.Min(wanted, left)));
        }
        return null;
    }

    // --- decide ----------------------------------------------------------------------------------

    static int Say(int exitCode, string sale, string what, params string[] hints)
    {
        Console.WriteLine(sale + ": " + what);
        foreach (string hint in hints)
            if (hint != "") Console.WriteLine("  " + hint);
        return exitCode;
    }

    static int Decide(string sale, Told told)
    {
        if (told == null)
            return Say(2, sale, "not known: no answer in time", "Sell it again under the same ID.");
        if (told.Status == 200) return DecidePrinted(sale, told.Answer);
        string what = told.Answer == null ? "status " + told.Status : Text(told.Answer, "detail");
        string hint = Text(told.Answer, "explanation", "what_to_do");
        switch (KindOf(told.Answer))
        {
        case "part":
        case "in-doubt":
        case "forgotten":
            return DecideInDoubt(sale, told.Answer, what, hint);
        case "not-printed":
            return Say(2, sale, "not printed: " + what, hint, "Then sell it again under the same ID.");
        case "withdrawn":
            return Say(1, sale, "not printed: " + what, "A new sale needs a new ID.");
        }
        if (new[] { 400, 413, 415, 422 }.Contains(told.Status))
            return Say(1, sale, "not printed, a mistake of the program: " + what, hint);
        return Say(2, sale, "refused: " + what, "Look at the settings. Then sell it again under the same ID.");
    }

    static int DecidePrinted(string sale, XmlElement job)
    {
        string number = Text(job, "outcome", "receipt", "after");
        if (number == "") number = "?";
        Write(FileOf(sale, "receipt"), number + "\n");
        if (Text(job, "exit_code") == "0" || Text(job, "resolved") != "")
            return Say(0, sale, "printed, receipt " + number);
        return Say(101, sale, "printed, receipt " + number + ", but: " + Text(job, "outcome", "driver", "message"),
                   "Look at the register before the next sale.");
    }

    static int DecideInDoubt(string sale, XmlElement answer, string what, string hint)
    {
        XmlElement job = answer["job"];
        string least = Text(job, "outcome", "commands", "at_least"), of = Text(job, "outcome", "commands", "of");
        string certain = "at least " + (least == "" ? "0" : least) + " of " + (of == "" ? "?" : of) + " commands";
        string page = Service + (job == null ? "/" : "/jobs/" + Text(job, "number"));
        return Say(101, sale, (job == null ? "unknown" : Text(job, "verdict")) + ", " + certain + ": " + what, hint,
                   "Look at the paper. Finish or cancel an open receipt on the register.",
                   "Then record what the paper says: " + page);
    }

    // ---------------------------------------------------------------------------------------------

    static string Mistake(string sale, string[] goods)
    {
        if (!Regex.IsMatch(sale, @"\A[0-9A-Za-z][0-9A-Za-z-]{0,99}\z")) return "ID has letters, digits and -";
        if (goods.Length % 2 != 0) return "each NAME wants a PRICE";
        bool priced = goods.Where((word, i) => i % 2 == 1)
                          .All(price => Regex.IsMatch(price, @"\A[0-9]{1,6}(\.[0-9]{1,2})?\z"));
        if (!priced) return "PRICE is up to 999999.99";
        string stored = Read(FileOf(sale, "sale.txt"));
        if (goods.Length == 0 && stored == "") return "nothing is stored under this ID";
        if (goods.Length > 0 && stored != "" && stored != CommandFile(goods))
            return "other goods were sold under this ID";
        return Regex.IsMatch(Read(TokenFile), @"\A\s*\S+\s*\z") ? null : "there is no token in " + TokenFile;
    }

    static int Main(string[] arguments)
    {
        string sale = arguments.FirstOrDefault() ?? "";
        string[] goods = arguments.Skip(1).ToArray();
        string mistake = Mistake(sale, goods);
        if (mistake != null)
        {
            Console.Error.WriteLine("sell: " + mistake);
            return 1;
        }
        string file = FileOf(sale, "sale.txt");
        Directory.CreateDirectory(Path.GetDirectoryName(file));
        if (goods.Length > 0) Write(file, CommandFile(goods));
        return Decide(sale, Ask(sale, Read(file)));
    }
}
