// Calls the test agent's trace functions directly, found by reflection the way
// the shim's loader finds them, and prints what the agent answered and what it
// recorded. Argument: the path of tarn.Agent.dll; the record file is the one
// the agent writes, named by TARN_AGENT_RECORD.
using System.Globalization;
using System.Reflection;
using System.Runtime.Loader;

static class Program
{
    const string AgentClass = "com.tarn.harrowlite.fieldmark.dotnet.PreAgentShim";

    sealed class Throwing
    {
        public override string ToString() => throw new InvalidOperationException("no text");
    }

    sealed class Named(string name)
    {
        public override string ToString() => name;
    }

    static int Main(string[] args)
    {
        // A culture with a decimal comma, so that a culture-bound record shows.
        CultureInfo.CurrentCulture = CultureInfo.GetCultureInfo("de-DE");
        Console.WriteLine("culture sample=" + 2.5.ToString());

        Assembly agent = AssemblyLoadContext.Default.LoadFromAssemblyPath(Path.GetFullPath(args[0]));
        Type shim = agent.GetType(AgentClass);
        if (shim == null)
        {
            Console.WriteLine("missing class " + AgentClass);
            return 2;
        }

        var contract = new (string Name, Type[] Parameters)[]
        {
            ("initTrace", [typeof(int)]), ("corInitTrace", [typeof(int)]), ("loadTrace", []),
            ("loadTrace", [typeof(object)]), ("pushTrace", [typeof(int), typeof(object)]), ("startTrace", []),
            ("finishValueTypeTrace", [typeof(object)]), ("finishTrace", []), ("finishTrace", [typeof(object)]),
            ("catchTrace", [typeof(object)]),
        };
        var methods = new Dictionary<string, MethodInfo>();
        foreach (var (name, parameters) in contract)
        {
            MethodInfo method = shim.GetMethod(name, parameters);
            string key = name + "(" + string.Join(",", parameters.Select(p => p.Name)) + ")";
            if (method == null || !method.IsPublic || !method.IsStatic)
            {
                Console.WriteLine("missing " + key);
                return 3;
            }
            Console.WriteLine("found " + key + " -> " + method.ReturnType.Name);
            methods[key] = method;
        }

        object Call(string key, params object[] values) => methods[key].Invoke(null, values);

        Console.WriteLine("initTrace=" + Call("initTrace(Int32)", 123));
        Console.WriteLine("corInitTrace=" + Call("corInitTrace(Int32)", 7));
        Call("loadTrace()");
        Call("loadTrace(Object)", new Named("probe"));
        Call("pushTrace(Int32,Object)", 0, 42);
        Call("pushTrace(Int32,Object)", 1, 2.5);
        Call("pushTrace(Int32,Object)", 2, "two\nlines");
        Call("pushTrace(Int32,Object)", 3, null);
        Call("pushTrace(Int32,Object)", 4, new int[3]);
        Call("pushTrace(Int32,Object)", 5, new Throwing());
        Call("startTrace()");
        Call("finishValueTypeTrace(Object)", 5L);
        Call("finishTrace()");
        Call("finishTrace(Object)", "done");
        Call("catchTrace(Object)", new InvalidOperationException("boom"));

        // Many threads at once: every line must arrive whole.
        var threads = Enumerable.Range(0, 4).Select(t => new Thread(() =>
        {
            for (int i = 0; i < 250; i++)
                Call("pushTrace(Int32,Object)", 100 + t, i);
        })).ToList();
        threads.ForEach(thread => thread.Start());
        threads.ForEach(thread => thread.Join());
        Console.WriteLine("done");

        string record = Environment.GetEnvironmentVariable("TARN_AGENT_RECORD");
        if (!string.IsNullOrEmpty(record) && File.Exists(record))
        {
            using var reader = new StreamReader(new FileStream(record, FileMode.Open, FileAccess.Read, FileShare.ReadWrite));
            for (string line; (line = reader.ReadLine()) != null;)
                Console.WriteLine("record: " + line);
        }
        return 0;
    }
}
