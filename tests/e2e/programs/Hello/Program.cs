// A small program whose output depends only on its own computation: a run under
// the profiler must print exactly what a run without it prints.
using System.Text;

static class Program
{
    static int Main(string[] args)
    {
        var words = new List<string> { "tarn", "harrow", "fieldmark", "shim" };
        var text = new StringBuilder();
        foreach (var word in words.OrderBy(w => w.Length).ThenBy(w => w))
            text.Append(word).Append(' ');
        Console.WriteLine(text.ToString().Trim());
        Console.WriteLine($"sum={Enumerable.Range(1, 100).Sum()} fib={Fibonacci(20)}");
        ReportProfilerMapping();
        return args.Length == 0 ? 0 : int.Parse(args[0]);
    }

    static int Fibonacci(int n) => n < 2 ? n : Fibonacci(n - 1) + Fibonacci(n - 2);

    // On request, tell the test on standard error which of our native libraries the
    // runtime has mapped into this process: the runtime unloads a profiler that it
    // refused, so a mapping at this point means it was accepted.
    static void ReportProfilerMapping()
    {
        if (Environment.GetEnvironmentVariable("TARN_E2E_REPORT_MAPS") != "1")
            return;
        var seen = new HashSet<string>();
        foreach (var line in File.ReadLines("/proc/self/maps"))
        {
            int slash = line.IndexOf('/');
            if (slash >= 0 && line.Contains("tarn.NativeProfiler") && seen.Add(line[slash..]))
                Console.Error.WriteLine("mapped: " + line[slash..]);
        }
    }
}
