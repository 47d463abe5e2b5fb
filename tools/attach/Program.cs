// tarn-attach --pid N [--profile FILE] [--agent-name NAME] [--profiler PATH] [KEY=VALUE ...]
// tarn-attach --version
//
// Asks the runtime of a running .NET process, over its diagnostic channel, to
// load the native profiler. The profile, the agent name and any KEY=VALUE
// pairs travel as the attach's client data, one KEY=VALUE line each, and the
// profiler puts them into the process's environment before it starts up.
using System.Reflection;
using System.Text;
using Microsoft.Diagnostics.NETCore.Client;

internal static class Program
{
    private static readonly Guid ProfilerClass = new("7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4");
    private const string Usage =
        "usage: tarn-attach --pid N [--profile FILE] [--agent-name NAME] [--profiler PATH] [KEY=VALUE ...]";

    private static int Main(string[] args)
    {
        int pid = 0;
        if (args.Length == 1 && args[0] == "--version")
        {
            Console.WriteLine("tarn-attach " + typeof(Program).Assembly
                .GetCustomAttribute<AssemblyInformationalVersionAttribute>()?.InformationalVersion);
            return 0;
        }
        // Beside the tool, or at the top of the agent home it is installed in (lib/attach/).
        string profiler = Path.Combine(AppContext.BaseDirectory, "tarn.NativeProfiler.so");
        if (!File.Exists(profiler))
            profiler = Path.GetFullPath(Path.Combine(AppContext.BaseDirectory, "..", "..", "tarn.NativeProfiler.so"));
        var lines = new List<string>();
        for (int i = 0; i < args.Length; i++)
        {
            string value = i + 1 < args.Length ? args[i + 1] : null;
            switch (args[i])
            {
                case "--pid" when int.TryParse(value, out pid) && pid > 0:
                    i++;
                    break;
                case "--profile" when value != null:
                    lines.Add("com.tarn.harrowlite.agentProfile=" + Path.GetFullPath(value));
                    i++;
                    break;
                case "--agent-name" when value != null:
                    lines.Add("com.tarn.harrowlite.agentName=" + value);
                    i++;
                    break;
                case "--profiler" when value != null:
                    profiler = Path.GetFullPath(value);
                    i++;
                    break;
                default:
                    int equals = args[i].IndexOf('=');
                    if (equals <= 0 || args[i].Contains('\n'))
                        return Fail("not an option nor a KEY=VALUE pair: " + args[i]);
                    lines.Add(args[i]);
                    break;
            }
        }
        if (pid == 0)
            return Fail("no process id given");
        if (!File.Exists(profiler))
            return Fail("no profiler library at " + profiler);

        byte[] clientData = Encoding.UTF8.GetBytes(string.Concat(lines.Select(line => line + "\n")) + "\0");
        try
        {
            new DiagnosticsClient(pid).AttachProfiler(TimeSpan.FromSeconds(30), ProfilerClass, profiler, clientData);
        }
        catch (ServerNotAvailableException)
        {
            return Fail($"process {pid} does not exist or is not a .NET process with a diagnostic channel");
        }
        catch (ServerErrorException e)
        {
            return Fail($"the runtime of process {pid} refused the profiler: {e.Message}");
        }
        catch (Exception e) when (e is TimeoutException or UnsupportedCommandException or IOException)
        {
            return Fail($"process {pid} did not take the attach: {e.Message}");
        }
        Console.WriteLine($"attached {profiler} to process {pid}");
        return 0;
    }

    private static int Fail(string message)
    {
        Console.Error.WriteLine("tarn-attach: " + message);
        Console.Error.WriteLine(Usage);
        return 2;
    }
}
